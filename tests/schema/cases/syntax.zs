# Mistakes of form: each line below that is wrong in itself gets one complaint.
  stray u_int8 "no block above"
module toy
module toy 1x
module toy 7 "no meaning wanted"
  record tbl_toy
  struct
strct st_toy 11111111111111111111111111111111 "misspelt"
  skipped u_int8
struct st_toy "luid left out"
  count u_int8 variant two "a variant is a number"
  count u_int8 variant 1 variant 2 "said twice"
  count u_int8 unit msec unit sec "said twice"
  state kvt_boolean bookkeeping bookkeeping "said twice"
  link kvt_oid -> view tbl_toy "neither table nor struct"
  link kvt_oid -> table tbl_a -> table tbl_b "said twice"
  size u_int8 default 3 "no such word"
  size u_int8
  size
  size u_int8 "meaning is the last" 5
  size u_int8 "never closed
  size u_int8 "a \ in the text"
  size u_int8 variant 99999999999 "too large to read"
struct st_open 22222222222222222222222222222222 "never closed
  skipped, since its block is
enum enm_toy 33333333333333333333333333333333 "an enumerator has no value"
  TOY_ONE 1 "first"
  TOY_TWO since
flag flg_toy 44444444444444444444444444444444 "a bit has no number"
  TOY_BIT 0 "first"
table tbl_toy "payload left out"
  luid 55555555555555555555555555555555
  luid 66666666666666666666666666666666
  index wlan_id
  key
expect st_toy size
expect st_toy size 12 block
