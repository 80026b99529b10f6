# Every kind of field, alignment and step of variants in a few small types.
module toy_base 200
  struct st_leaf
  enum   enm_shade

module toy 201
  struct st_tree
  struct st_note
  flag   flg_marks
  table  tbl_trees
  table  tbl_leaves

enum enm_shade 00000000000000000000000000000001 "Shade of a leaf"
  SHADE_NONE           "None"
  SHADE_DARK           "Dark"
  SHADE_RED   since 1  "Red, in autumn"
  SHADE_GONE  since 2  "Fallen"
  SHADE_BACK  since 2  "Back in spring"

flag flg_marks 00000000000000000000000000000002 "Marks on a tree"
  MARK_FELL   "To be felled"
  MARK_PRUNE  "To be pruned"

struct st_leaf 00000000000000000000000000000003 "Leaf"
  age     u_int8              unit day  "Age"
  veins   u_int8                        "Number of veins"
  shade   enm_shade                     "Shade"
  width   u_int16                       "Width"
  holes   u_int16  variant 1            "Holes; packed behind width"
  serial  u_int64  variant 2            "Serial number; aligned to 8"

struct st_tree 00000000000000000000000000000004 "Tree"
  id       u_int32                                      "Number; the key of tbl_trees"
  name     kvt_vstring                                  "Name"
  top      st_leaf                                      "Topmost leaf, at its highest variant"
  secret   kvt_aes_vstring                              "What the tree knows"
  bark     qep_bytestr                                  "Bark sample"
  marks    flg_marks                                    "Marks"
  alive    kvt_boolean                                  "Alive"
  bottom   st_leaf                           variant 1  "Lowest leaf"
  parent   kvt_oid -> table tbl_trees        variant 2  "Tree it grew from"
  inspect  timer                             variant 3 bookkeeping  "Inspection"
  rings    u_int8                            variant 3  "Rings"

struct st_note 00000000000000000000000000000005 "Note about a leaf"
  leaf  kvt_oid -> struct st_leaf  "Leaf spoken of"

table tbl_trees st_tree "Trees"
  luid    00000000000000000000000000000006
  record  00000000000000000000000000000007
  key     id
  key     name

table tbl_leaves st_leaf "Leaves"
  luid    00000000000000000000000000000008
  record  00000000000000000000000000000009
  key     age
  key     shade
  key     width

expect st_leaf variant 2 size 48 block 6
