# Modules that stand on others: unknown ones, twice the same one, rings.

module top 1
  needs  low
  needs  lower
  needs  low
  struct st_top

module low 2
  needs  lowest
  needs  top

module lowest 3
  needs  lowest

struct st_top 00000000000000000000000000000001 "top"
  a  u_int8  "a"
