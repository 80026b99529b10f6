// Handlers that keep a journal. HANDLERS says of which events: bits by their order.
#include "tests/events/handlers.h"

#include "zarn_wlan/zarn_wlan.h"

#define ONE(kind, T, name, list, first)                                   \
  extern "C" int32_t zarn_wlan_##T##_table_record_##name##_handler list { \
    return events_heard(kind, #T, h, txn, first, object, err);            \
  }
#define PLAIN (kvt_handle * h, uint32_t txn, void* first, void* object, int* err)
#define DM (kvt_handle * h, uint32_t txn, void* object, int* err)
#define GROUPING \
  (kvt_handle * h, uint32_t txn, void* object, int* err, uintptr_t a, uintptr_t b, uintptr_t c, uintptr_t d)
#define FREE (kvt_handle * h, uint32_t txn, uintptr_t first, uintptr_t second, int* err, uintptr_t third)
#define WORDS_OF_GROUPING reinterpret_cast<void*>(a * 1000 + b * 100 + c * 10 + d)

#if HANDLERS & 1
#define PLAIN_HANDLERS(T) \
  ONE(0, T, create, PLAIN, first) ONE(1, T, modify, PLAIN, first) ONE(2, T, delete, PLAIN, first)
#else
#define PLAIN_HANDLERS(T)
#endif
#if HANDLERS & 2
#define OTHER_HANDLERS(T)                                                                                              \
  ONE(3, T, create_dm, DM, nullptr)                                                                                    \
  ONE(4, T, delete_dm, DM, nullptr)                                                                                    \
  ONE(5, T, grouping, GROUPING, WORDS_OF_GROUPING) extern "C" int32_t zarn_wlan_##T##_table_record_free_handler FREE { \
    return events_heard(6, #T, h, txn, reinterpret_cast<void*>(first), reinterpret_cast<void*>(second + third), err);  \
  }
#else
#define OTHER_HANDLERS(T)
#endif
#define HANDLERS_OF(T) PLAIN_HANDLERS(T) OTHER_HANDLERS(T)
HANDLERS_OF(tbl_wlan)
#if HANDLERS != 1
HANDLERS_OF(tbl_wlan_profile_assoicated_tag)
HANDLERS_OF(tbl_mpsk_keys_int)
HANDLERS_OF(tbl_internal_wlan_radio_policy)
HANDLERS_OF(tbl_apgroup_wlan)
HANDLERS_OF(tbl_wlan_ifid)
HANDLERS_OF(tbl_wireless_aaa_policy)
#endif
