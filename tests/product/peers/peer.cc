// One side of an exchange between two generations of a schema; with GROWN it is the newer one.
//   peer write|read object|record on|off FILE
// fills an object and writes its bytes to FILE, or reads FILE into an object that was filled with other values, and
// prints what the object then holds: its variants, and a line "path value state" for each field.
#include <peers/peers.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

kvt_handle* h;
int err;

struct Field {
  const char* path;
  void* object;
  void (*set)(void*, unsigned);
  std::string (*get)(void*);
  void (*set_state)(kvt_handle*, uint32_t, void*, uint32_t, int*);
  uint8_t (*get_state)(kvt_handle*, uint32_t, void*, int*);
};
#define STATES(T, f) T##_##f##_state_flag_set, T##_##f##_state_flag_get
#define NUMBER(path, T, f, object, mask)                                                         \
  {                                                                                              \
    path, object, [](void* o, unsigned v) { T##_##f##_set_value(h, 0, o, v& mask, &err); },      \
        [](void* o) { return std::to_string(T##_##f##_get_value(h, 0, o, &err)); }, STATES(T, f) \
  }
#define TEXT(path, T, f, object)                                                                            \
  {                                                                                                         \
    path, object,                                                                                           \
        [](void* o, unsigned v) {                                                                           \
          const std::string text = std::to_string(v);                                                       \
          kvt_vstring_assign(h, 0, T##_##f##_get(h, 0, o, &err), text.data(), text.size(), &err);           \
        },                                                                                                  \
        [](void* o) -> std::string { return kvt_vstring_text(T##_##f##_get(h, 0, o, &err)); }, STATES(T, f) \
  }
#define NESTED(path, T, f, object)                                                             \
  {                                                                                            \
    path, object, [](void*, unsigned) {}, [](void*) { return std::string("-"); }, STATES(T, f) \
  }

struct Tree {
  void *outer, *middle, *inner;
  std::vector<Field> fields;  // those of the older schema first
};

Tree tree_of(void* outer) {
  void* middle = st_outer_middle_get(h, 0, outer, &err);
  void* inner = st_middle_inner_get(h, 0, middle, &err);
  std::vector<Field> fields = {
      NUMBER("id", st_outer, id, outer, ~0u),           NESTED("middle", st_outer, middle, outer),
      NESTED("middle.inner", st_middle, inner, middle), NUMBER("middle.inner.small", st_inner, small, inner, 0xFF),
      TEXT("middle.inner.text", st_inner, text, inner), NUMBER("middle.mark", st_middle, mark, middle, 1),
      NUMBER("tail", st_outer, tail, outer, ~0u)};
#ifdef GROWN
  void* second = st_middle_second_get(h, 0, middle, &err);
  for (const Field& field : std::vector<Field>{
           NUMBER("middle.inner.wide", st_inner, wide, inner, ~0u), TEXT("middle.inner.more", st_inner, more, inner),
           NESTED("middle.second", st_middle, second, middle),
           NUMBER("middle.second.small", st_inner, small, second, 0xFF),
           TEXT("middle.second.more", st_inner, more, second), TEXT("middle.note", st_middle, note, middle),
           TEXT("name", st_outer, name, outer), NUMBER("late", st_outer, late, outer, 0xFFFF)}) {
    fields.push_back(field);
  }
#endif
  return {outer, middle, inner, fields};
}

void fill(Tree& tree, bool tracked, unsigned seed) {
  for (unsigned i = 0; i < tree.fields.size(); ++i) {
    const Field& field = tree.fields[i];
    field.set(field.object, i * 2 + seed);
    if (tracked) field.set_state(h, 0, field.object, i * 4 + seed, &err);
  }
}

// An object that took an older form says 43 to its newer fields; what they hold shows when it is raised again.
void raise(const Tree& tree) {
  for (void* object : {tree.outer, tree.middle, tree.inner}) {
    auto* bytes = static_cast<char*>(object);
    bytes[4] = bytes[5];
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) return 2;
  const bool writes = std::strcmp(argv[1], "write") == 0, in_record = std::strcmp(argv[2], "record") == 0;
  const bool tracked = std::strcmp(argv[3], "on") == 0;
  kvt_handle_options options;
  kvt_handle_options_init(&options);
  options.tracking = tracked ? KVT_STTR_ON : 0;
  h = kvt_handle_open_private(&options, &err);
  if (!h) return 2;
  Tree tree = tree_of(st_outer_create(h, 0));
  fill(tree, tracked, writes ? 1 : 2);
  void* record = nullptr;
  if (in_record) {
    record = tbl_outers_create_record(h, 0, &err);
    tbl_outers_st_outer_set_field(h, 0, record, tree.outer);
  }
  if (writes) {
    std::vector<std::uint8_t> bytes(4096);
    const auto room = static_cast<std::int32_t>(bytes.size());
    const std::uint32_t written = in_record ? tbl_outers_table_record_marshal(h, 0, bytes.data(), record, room, &err)
                                            : st_outer_marshal(h, 0, bytes.data(), tree.outer, room, &err);
    std::ofstream(argv[4], std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), written);
    return err;
  }
  std::ifstream in(argv[4], std::ios::binary);
  std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(in), {}};
  const auto size = static_cast<std::int32_t>(bytes.size());
  bytes.resize(bytes.size() + 8, 0xCC);
  const std::uint32_t used = in_record
                                 ? tbl_outers_table_record_unmarshal(h, 0, &record, bytes.data(), size + 8, 1, &err)
                                 : st_outer_unmarshal(h, 0, bytes.data(), tree.outer, size + 8, 0, &err);
  std::printf("used all but %d\n", size - static_cast<std::int32_t>(used));
  std::printf("variants %d %d %d\n", kvt_get_instance_variant(tree.outer, 1, 0),
              kvt_get_instance_variant(tree.middle, 1, 0), kvt_get_instance_variant(tree.inner, 1, 0));
  raise(tree);
  for (const Field& field : tree.fields) {
    const int state = tracked ? field.get_state(h, 0, field.object, &err) : 0;
    std::printf("%s %s %d\n", field.path, field.get(field.object).c_str(), state);
  }
  return err;
}
