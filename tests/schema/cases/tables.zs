# Tables and their keys.
module toy 1
  struct st_row
  struct st_nested
  enum   enm_band
  flag   flg_marks
  table  tbl_good
  table  tbl_nowhere
  table  tbl_keyless
  table  tbl_many
  table  tbl_kinds

struct st_nested 00000000000000000000000000000001 "nested in rows"
  a u_int8 "only"

struct st_row 00000000000000000000000000000002 "a row"
  small   u_int8             "fits"
  wide    u_int64            "fits"
  name    kvt_vstring        "fits"
  band    enm_band           "fits"
  on      kvt_boolean        "does not fit"
  secret  kvt_aes_vstring    "does not fit"
  bytes   qep_bytestr        "does not fit"
  nested  st_nested          "does not fit"
  marks   flg_marks          "does not fit"
  link    kvt_oid -> struct st_nested "does not fit"
  clock   timer              "does not fit"
  late    u_int32 variant 1  "older rows have none"

enum enm_band 00000000000000000000000000000003 "band"
  BAND_A "only"
flag flg_marks 00000000000000000000000000000004 "marks"
  MARK_A "only"

table tbl_good st_row "three keys of different kinds"
  luid    00000000000000000000000000000005
  record  00000000000000000000000000000006
  key     wide
  key     name
  key     band

table tbl_nowhere st_missing "no such payload"
  luid    00000000000000000000000000000007
  record  00000000000000000000000000000008
  key     small

table tbl_keyless st_row "no key"
  luid    00000000000000000000000000000009
  record  0000000000000000000000000000000a

table tbl_many st_row "a key too many, one twice, one unknown"
  luid    0000000000000000000000000000000b
  record  0000000000000000000000000000000c
  key     small
  key     wide
  key     small
  key     missing

table tbl_kinds st_row "keys of kinds that have no order"
  luid    0000000000000000000000000000000d
  record  0000000000000000000000000000000e
  key     on
  key     secret
  key     bytes

table tbl_more_kinds st_row "more of them"
  luid    0000000000000000000000000000000f
  record  00000000000000000000000000000010
  key     nested
  key     marks
  key     link

table tbl_last_kinds st_row "a timer, and a field that came later"
  luid    00000000000000000000000000000011
  record  00000000000000000000000000000012
  key     clock
  key     late
module more 2
  table tbl_more_kinds
  table tbl_last_kinds
