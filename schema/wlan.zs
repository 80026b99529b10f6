# The WLAN profile, the tables, and the order of the module's type table.
# The language: docs/schema.md.

# A type is numbered by its place here, and registries and databases keep the order: new types go behind the last of
# their kind.
module zarn_wlan 16
  needs  qep_comm
  needs  rudd_common
  needs  zarn_enum_types
  needs  zarn_types
  needs  zarn_tag_common
  needs  zarn_config_db_const_defs
  struct st_local_eap_auth
  struct st_wlan_aaa_settings
  struct st_user_qos_policy
  struct st_wlan_qos_settings
  struct st_wlan_policies_settings
  struct st_wlan_access_policies_settings
  struct st_web_pre_auth_acl
  struct st_l3_security_settings
  struct st_dot11_encryption_template
  struct st_static_wep
  struct st_dot1x
  struct wpa_psk_type
  struct wpa_ft_type
  struct wpa_dorp_type
  struct st_mpsk_key_info
  struct st_mpsk_key_info_notify
  struct st_wpa_auth_key_mgmt
  struct st_wpa_encryption
  struct st_wpa3_sae_params
  struct st_wpa_wpa2
  struct st_ft_params
  struct st_wpa_ft_params
  struct st_pmf_params
  struct st_wpa_pmf_params
  struct st_l2_auth_type
  struct st_l2_security_settings
  struct st_wlan_security_settings
  struct st_dtim
  struct st_wlan_timeout_settings
  struct st_wlan_client_settings
  struct st_wlan_data_acl_override
  struct st_channel_scan
  struct st_voice
  struct st_assisted_roaming_settings
  struct st_multicast_buffer_tuning
  struct st_802_11v
  struct st_802_11ax
  struct st_sched_cfg
  struct st_device_analytics
  struct st_laa_params
  struct st_dot11k_rm_beacon_meas_req
  struct st_wlan_feature_settings
  struct st_wlan_ifid
  struct st_internal_wlan_radio_policy
  struct st_internal_wlan_radio_policy_notify
  struct st_wlan
  struct st_wlan_notify
  struct st_wireless_aaa_policy_notify
  struct st_nas_id_aaa
  struct st_wireless_aaa_policy
  enum   enm_dhcp_option82_format
  enum   enm_auto_qos_policy
  enum   enm_qos_wmm_status
  enum   key_format_type
  enum   key_size_type
  enum   dot11_key_size_type
  enum   enm_static_wep_auth_type
  enum   enm_pmf_feature_availability
  enum   enm_wlan_security_type
  enum   enm_p2p_block_action
  enum   enm_wifi_direct_client_policy
  enum   enm_admin_state
  flag   flg_mpsk_key_info_notify
  flag   flg_internal_wlan_radio_policy_notify
  flag   flg_wireless_aaa_policy_notify
  table  tbl_wlan_profile_assoicated_tag
  table  tbl_mpsk_keys_int
  table  tbl_internal_wlan_radio_policy
  table  tbl_wlan
  table  tbl_apgroup_wlan
  table  tbl_wlan_ifid
  table  tbl_wireless_aaa_policy

enum enm_dhcp_option82_format fdfb462fd6fad8dbf82d5644ef7d9967 "What DHCP option 82 carries"
  DHCP_OPTION_NONE  "Option left out"
  ADD_SSID          "SSID"
  ADD_ETHMAC        "Ethernet MAC address"

enum enm_admin_state 0e46c215b5fa5b0cdb18bd763f20134c "Administrative state"
  ADMIN_ENABLED   "Enabled"
  ADMIN_DISABLED  "Disabled"

struct st_wlan_ifid f870a492e37e6ed5aa60fe51216f4707 "Interface identifier of a WLAN, kept apart from its profile"
  wlan_id        u_int32                   "WLAN identifier; the key of tbl_wlan_ifid"
  generation_id  u_int64                   "Generation number"
  wlan_ifid      u_int32                   "Interface identifier held for this WLAN"
  dirty_flag     kvt_boolean  bookkeeping  "The entry is dirty"

struct st_wlan e238913712aa6bda03e007f5675394f6 "WLAN profile"
  wlan_id                     u_int32                                                                  "Numeric WLAN identifier; key of tbl_wlan, tbl_apgroup_wlan"
  generation_id               u_int64                                                                  "Generation number of the record"
  wlan_ifid                   u_int32                                                                  "Interface identifier of the WLAN; the value that st_wlan_ifid keeps by wlan_id"
  profile_name                kvt_vstring                                                              "Profile name; second key of tbl_wlan and tbl_apgroup_wlan"
  ssid                        kvt_vstring                                                              "Network name (SSID); third key of tbl_apgroup_wlan"
  status                      kvt_boolean                                                              "Status of the WLAN, on or off"
  is_remote_lan               kvt_boolean                                                              "The profile describes a remote LAN"
  broadcast_ssid              kvt_boolean                                                              "The SSID is broadcast"
  wlan_security               st_wlan_security_settings                                                "Security settings"
  wlan_acl                    st_wlan_data_acl_override                                                "Data ACL override"
  wlan_policies               st_wlan_policies_settings                                                "Radio policy and QoS"
  wlan_access_policies        st_wlan_access_policies_settings                                         "Access policies"
  wlan_aaa                    st_wlan_aaa_settings                                                     "AAA settings"
  wlan_client_conf            st_wlan_client_settings                                                  "Client limits"
  wlan_timeout                st_wlan_timeout_settings                                                 "Session timeout and DTIM"
  wlan_features               st_wlan_feature_settings                                                 "Feature settings"
  ref_count                   u_int32                                           bookkeeping            "Reference count of the WLAN"
  new_wlan_ifid               u_int32                                           bookkeeping            "New value of wlan_ifid"
  new_generation_id           u_int32                                           bookkeeping            "New generation, a u_int32 where generation_id is a u_int64"
  notif                       enm_wlanmgr_pending_notifications                 bookkeeping            "The pending notification"
  mdns_sd_mode                enm_wlan_mdns_sd_cfg                                                     "mDNS service discovery mode"
  profile_assoicated_tag_oid  kvt_oid -> table tbl_wlan_profile_assoicated_tag                         "Reference to the associated-tag table tbl_wlan_profile_assoicated_tag"
  is_guest_lan                kvt_boolean                                                              "The profile describes a guest LAN"
  wired_vlan                  u_int32                                                                  "Wired VLAN number"
  int_mpsk_keys_oid           kvt_oid -> table tbl_mpsk_keys_int                                       "Reference to the MPSK key table tbl_mpsk_keys_int"
  okc_internal                kvt_boolean                                       variant 1 bookkeeping  "Internal OKC (opportunistic key caching) switch"
  rec_idmgr_hndl              u_int64                                           variant 1 bookkeeping  "Record handle of the identifier manager"
  ref_cleanup_timer_hndl      u_int64                                           variant 1 bookkeeping  "Handle of the reference clean-up timer"
  internal_radio_policy_oid   kvt_oid -> table tbl_internal_wlan_radio_policy   variant 2              "Reference to the radio policy table tbl_internal_wlan_radio_policy"
  vap_dot11bg_cfg             st_apf_vap_802_11bg                               variant 2              "802.11b/g configuration of the VAP, a sibling struct"
  ref_cleanup_timer           timer                                             variant 3 bookkeeping  "The reference clean-up timer; no wire, print or XML form"
  latency_ma                  kvt_boolean                                       variant 3              "latency_ma switch"
  modify_on_ifid_ipc          kvt_boolean                                       variant 3 bookkeeping  "Modify on the interface-identifier message"

struct st_wlan_notify a617cdfa0d5e315861bfeabea3fdb259 "Notification about a WLAN profile"
  notify_admin_status  kvt_boolean                "Administrative status carried with the notification"
  generation_id        u_int64                    "Generation the notification speaks of"
  wlan_notify_flag     flg_wlan_notify            "Flag set of the notification, a sibling flag type"
  wlan_rec_ref         kvt_oid -> struct st_wlan  "Reference to the st_wlan object that the notification speaks of"

table tbl_wlan_profile_assoicated_tag st_profile_assoicated_tag "Tags that are associated with a WLAN profile"
  luid    d51df5ff4d60e111d1b0ab5fb1498fc0
  record  30d1a248b04d57984fddf0243042d34a
  key     tag_name

table tbl_wlan st_wlan "WLAN profiles"
  luid    9e55abbb893a50d6fa85411d698a89d9
  record  0876c0300a9eace5266bbebed32add47
  key     wlan_id
  key     profile_name

table tbl_apgroup_wlan st_wlan "WLAN profiles of an AP group"
  luid    5514d07133f9b4797d9578193511957f
  record  7e0b1f5b0d766c045dc4554c8ec19f7d
  key     wlan_id
  key     profile_name
  key     ssid

table tbl_wlan_ifid st_wlan_ifid "Interface identifiers of WLANs"
  luid    ff51b838a5ea098650ad1f200621988c
  record  8545c406ff8db121d747a1e1fca6bfdd
  key     wlan_id

expect st_wlan variant 3 size 1992 block 243
