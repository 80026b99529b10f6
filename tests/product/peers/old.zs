# A module whose peers have a newer schema: peers_test.cc appends fields at every level of nesting.
module peers 202
  struct st_inner
  struct st_middle
  struct st_outer
  table  tbl_outers

struct st_inner 00000000000000000000000000000011 "Inner"
  small  u_int8       "Integer"
  text   kvt_vstring  "Text"

struct st_middle 00000000000000000000000000000012 "Middle"
  inner  st_inner     "First inner"
  mark   kvt_boolean  "Mark"

table tbl_outers st_outer "Outers"
  luid    00000000000000000000000000000014
  record  00000000000000000000000000000015
  key     id

struct st_outer 00000000000000000000000000000013 "Outer"
  id      u_int32                       "Number; the key of tbl_outers"
  middle  st_middle                     "Middle"
  tail    u_int64                       "Behind the nested"
  target  kvt_oid -> table tbl_outers   "Another outer"
