// Handlers for the benchmark to load.
#include <zarn_wlan/zarn_wlan.h>

int32_t zarn_wlan_tbl_wlan_table_record_create_handler(kvt_handle*, uint32_t, void*, void*, int*) { return 0; }
int32_t zarn_wlan_tbl_wlan_table_record_modify_handler(kvt_handle*, uint32_t, void*, void*, int*) { return 0; }
int32_t zarn_wlan_tbl_wlan_table_record_delete_handler(kvt_handle*, uint32_t, void*, void*, int*) { return 0; }
