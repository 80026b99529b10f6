# Types that are not there, do not fit, are empty or contain themselves.
module toy 1
  struct st_toy
  struct st_empty
  struct st_self
  struct st_ring_a
  struct st_ring_b
  struct st_toy
  struct enm_toy
  enum   enm_toy
  enum   enm_missing
  flag   flg_empty
  table  tbl_toy
module other 2
  enum enm_toy

struct st_toy 00000000000000000000000000000001 "fields that do not fit"
  key      u_int8                       "good"
  ghost    st_ghost                     "unknown type"
  rows     tbl_toy                      "a table"
  bare     kvt_oid                      "no target"
  lost     kvt_oid -> table tbl_lost    "unknown target"
  swapped  kvt_oid -> table st_toy      "a struct"
  reverse  kvt_oid -> struct tbl_toy    "a table"
  enumref  kvt_oid -> struct enm_toy    "an enum"
  pointer  u_int32 -> table tbl_toy     "no reference"
  label    kvt_vstring unit msec        "no integer"
  timer_a  timer                        "good"
  timer_b  timer                        "one too many"

struct st_empty 00000000000000000000000000000002 "no fields"

struct st_self 00000000000000000000000000000003 "contains itself"
  self st_self "itself"

struct st_ring_a 00000000000000000000000000000004 "contains itself by way of another"
  b st_ring_b "the other"

struct st_ring_b 00000000000000000000000000000005 "closes the ring"
  a st_ring_a "the other"

struct st_unlisted 00000000000000000000000000000006 "in no module"
  key u_int8 "only"

enum enm_toy 00000000000000000000000000000007 "no enumerators"
flag flg_empty 00000000000000000000000000000008 "no bits"
flag flg_wide 00000000000000000000000000000009 "a bit too many, and in no module"
  BIT_0 "bit"
  BIT_1 "bit"
  BIT_2 "bit"
  BIT_3 "bit"
  BIT_4 "bit"
  BIT_5 "bit"
  BIT_6 "bit"
  BIT_7 "bit"
  BIT_8 "bit"

table tbl_toy st_toy "good"
  luid    0000000000000000000000000000000a
  record  0000000000000000000000000000000b
  key     key

table tbl_loose st_toy "in no module"
  luid    0000000000000000000000000000000c
  record  0000000000000000000000000000000d
  key     key
