# Names that cannot be names, and things that are called or identified alike.
module toy 1
  struct st_toy
  struct st_twin
  struct st-dash
  struct st_short
  struct st_capital
  struct st_toy_size
  enum enm_toy
  flag flg_toy
  flag u_int8
  table tbl_toy
  table tbl_a_name_that_leaves_no_room_for_the_suffix_of_its_records
module toy 1
module zero 0
module large 256
module new 2

struct st_toy 00000000000000000000000000000001 "carries bad field names"
  count     u_int8 "first"
  2nd       u_int8 "begins with a digit"
  re-try    u_int8 "dash"
  class     u_int8 "keyword of C++"
  restrict  u_int8 "keyword of C"
  __count   u_int8 "reserved"
  _Count    u_int8 "reserved"
  count     u_int8 "the second of its name"
  size      u_int8 "its operations are those of st_toy_size"
  this_name_is_longer_than_the_sixty_three_characters_of_a_record_ u_int8 "too long"

struct st_twin 00000000000000000000000000000001 "the luid of st_toy"
  count u_int8 "no clash: fields are named within their struct"

struct st_twin 00000000000000000000000000000002 "the second of its name"
  count u_int8 "only"

struct st-dash 00000000000000000000000000000003 "no identifier"
  count u_int8 "only"

struct st_short 0000000000000000000000000000004 "a digit is missing"
  count u_int8 "only"

struct st_capital 0000000000000000000000000000000A "a capital digit"
  count u_int8 "only"

struct st_toy_size 00000000000000000000000000000005 "stands in the way of a field"
  count u_int8 "only"

enum enm_toy 00000000000000000000000000000006 "shares enumerators"
  TOY_ONE "first"
  TOY_ONE "the second of its name"
  st_toy  "the name of a struct"

flag flg_toy 00000000000000000000000000000007 "shares bits"
  TOY_ONE "the name of an enumerator"
  TOY_BIT "good"
  TOY_BIT "the second of its name"

flag u_int8 00000000000000000000000000000008 "the name of a primitive type"
  TOY_LAST "only"

table tbl_toy st_toy "its identities are taken or missing"
  luid 00000000000000000000000000000005
  key  count

table tbl_a_name_that_leaves_no_room_for_the_suffix_of_its_records st_toy "its record's name is too long"
  luid    00000000000000000000000000000009
  record  00000000000000000000000000000009
  key     count
