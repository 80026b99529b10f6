/* A profile of one's own: made, filled in, read back and written as XML. */
#include <stdio.h>
#include <zarn_wlan/zarn_wlan.h>

int main(void) {
  static char xml[64 * 1024];
  int err = 0;
  kvt_handle* handle = kvt_handle_open_private(NULL, &err);
  if (handle == NULL) return 1;
  void* wlan = st_wlan_create(handle, KVT_NO_TXN);
  st_wlan_wlan_id_set_value(handle, KVT_NO_TXN, wlan, 7, &err);
  kvt_vstring_assign(handle, KVT_NO_TXN, st_wlan_ssid_get(handle, KVT_NO_TXN, wlan, &err), "Library", 7, &err);
  uint32_t length = st_wlan_to_xml(handle, KVT_NO_TXN, "st_wlan", xml, wlan, sizeof xml, 0, &err);
  if (err == 0) fwrite(xml, 1, length, stdout);
  st_wlan_destroy(handle, KVT_NO_TXN, wlan);
  kvt_handle_close(handle);
  return err != 0;
}
