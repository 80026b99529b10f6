# Expectations that layout does not meet.
module toy 1
  struct st_toy
  enum   enm_toy
  flag   flg_toy
  table  tbl_toy

struct st_toy 00000000000000000000000000000001 "two variants, a state byte for each field"
  a u_int8 "at 7"
  b u_int8 "at 8"
  c u_int8 variant 1 "at 9"
enum enm_toy 00000000000000000000000000000002 "one"
  TOY_ONE "only"
flag flg_toy 00000000000000000000000000000003 "one"
  TOY_BIT "only"
table tbl_toy st_toy "one key"
  luid    00000000000000000000000000000004
  record  00000000000000000000000000000005
  key     a

expect st_toy size 20 block 3 used 10 bound 3
expect st_toy variant 0 size 16 block 2 used 9 bound 2
expect st_toy variant 0 size 20 block 2 bound 3
expect st_toy variant 2 size 24
expect st_toy weight 16
expect enm_toy count 2
expect flg_toy size 12
expect tbl_toy size 376 record 76 slot 68
expect st_missing size 16
