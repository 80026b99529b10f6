# Keys of a WLAN with multiple pre-shared keys.
# The language: docs/schema.md.

flag flg_mpsk_key_info_notify 699f071a5fd8e665a9dfdec6baecde5b "Which tables a notification about keys concerns"
  TBL_MPSK_KEYS_INT_NOTIFY  "Keys of a WLAN"

struct st_mpsk_key_info d0e5b1c1f20388aeb67a0a1898e7542c "Key of a WLAN with multiple pre-shared keys"
  priority                       u_int8                     "Key priority; the key of tbl_mpsk_keys_int"
  mpsk_key                       kvt_aes_vstring            "The key"
  generation_id                  u_int64                    "Generation number of the record"
  mpsk_key_format                key_format_type            "Form of the key text"
  mpsk_key_type                  enm_CryptType              "How the stored key is encrypted"
  pmk_key                        qep_bytestr                "The PMK, as bytes"
  parent_wlan_oid                kvt_oid -> table tbl_wlan  "Reference into tbl_wlan: the parent WLAN"
  parent_apfvap_profilename_key  kvt_vstring                "Profile name of the parent"

struct st_mpsk_key_info_notify 245282467b0cb067f3a6a9664888a9d7 "Notification about an MPSK key"
  notify_admin_status    kvt_boolean                         "Administrative status carried with the notification"
  generation_id          u_int64                             "Generation the notification speaks of"
  mpsk_keys_notify_flag  flg_mpsk_key_info_notify            "Flag set with the one bit TBL_MPSK_KEYS_INT_NOTIFY"
  mpsk_key_rec_ref       kvt_oid -> struct st_mpsk_key_info  "Reference to the st_mpsk_key_info object that the notification speaks of"

table tbl_mpsk_keys_int st_mpsk_key_info "Keys of a WLAN by priority"
  luid    7b423ffb8840c14b5774020cef20778f
  record  732e927e70774c18945f5af1c21781ee
  key     priority

expect st_mpsk_key_info variant 0 size 136 block 8
