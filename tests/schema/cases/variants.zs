# Variants append: the next is the last one or the one after it.
module toy 1
  struct st_late
  struct st_gap
  struct st_back
  struct st_high
  enum   enm_late
  enum   enm_gap
  enum   enm_back

struct st_late 00000000000000000000000000000001 "begins at 1"
  a u_int8 variant 1  "nothing lies in front of it"
  b u_int8 variant 1  "good"
  c u_int8 variant 2  "good"

struct st_gap 00000000000000000000000000000002 "leaves variant 1 out"
  a u_int8            "good"
  b u_int8 variant 2  "gap"
  c u_int8 variant 3  "good: told once"

struct st_back 00000000000000000000000000000003 "goes back"
  a u_int8            "good"
  b u_int8 variant 1  "good"
  c u_int8            "moves b"
  d u_int8 variant 1  "good"

struct st_high 00000000000000000000000000000004 "more than a signed byte counts"
  a u_int8 variant 127  "too high"

enum enm_late 00000000000000000000000000000005 "begins at 2"
  LATE_A since 2  "nothing lies in front of it"
enum enm_gap 00000000000000000000000000000006 "leaves variant 1 out"
  GAP_A           "good"
  GAP_B  since 2  "gap"
enum enm_back 00000000000000000000000000000007 "goes back"
  BACK_A           "good"
  BACK_B  since 1  "good"
  BACK_C           "moves BACK_B"
