# 802.11 feature blocks and the radio policy of a band.
# The language: docs/schema.md.

flag flg_internal_wlan_radio_policy_notify af5d8bb09f2e9ea4765890e0f94855d0 "Which tables a notification about radio policies concerns"
  TBL_INT_WLAN_RADIO_POLICY_NOTIFY  "Radio policies"

struct st_802_11v 2af408b9a558a97d525d66c7f92d0b3c "802.11v settings"
  dot11v_dms                      kvt_boolean             "Directed multicast service"
  dot11v_bss_max_idle             kvt_boolean             "BSS max idle period"
  dot11v_bss_max_idle_protected   kvt_boolean             "BSS max idle, protected form"
  dot11v_tfs                      kvt_boolean             "Traffic filtering service"
  dot11v_bss_transition           kvt_boolean             "BSS transition management"
  dot11v_wnm_sleep_mode           kvt_boolean             "WNM sleep mode"
  dot11v_bss_term_in_progress     kvt_boolean             "BSS termination in progress"
  dot11v_disassoc_imminent        kvt_boolean             "Disassociation imminent"
  dot11v_disassoc_timer           u_int16                 "Disassociation timer"
  dot11v_disassoc_timer_opt_roam  u_int16                 "Disassociation timer of optimised roaming"
  dot11v_dual_list                kvt_boolean  variant 1  "Dual list"

struct st_802_11ax 4a3145e80d3f9304801ad492d1ae6c5c "802.11ax settings"
  he_ofdma_downlink            kvt_boolean                         "HE OFDMA, downlink"
  he_ofdma_uplink              kvt_boolean                         "HE OFDMA, uplink"
  he_mumimo_downlink           kvt_boolean                         "HE MU-MIMO, downlink"
  he_mumimo_uplink             kvt_boolean                         "HE MU-MIMO, uplink"
  he_bss_color_enable          kvt_boolean                         "BSS colouring enabled"
  he_bss_partial_color_enable  kvt_boolean                         "Partial BSS colouring enabled"
  he_bss_color                 u_int8                              "BSS colour"
  he_twt_enable                kvt_boolean                         "Target wake time enabled"
  he_twt_broadcast_support     kvt_boolean  variant 1              "Broadcast target wake time"
  he_dot11_ax_internal         kvt_boolean  variant 2 bookkeeping  "Internal 802.11ax switch"

struct st_internal_wlan_radio_policy d9f21c4c9ca1ef93c528beaf3a90f5d4 "Radio policy of a WLAN on one band"
  band                           enm_zarn_dot11_radio_band  "Radio band; the key of tbl_internal_wlan_radio_policy"
  generation_id                  u_int64                    "Generation number of the record"
  slot0                          kvt_boolean                "Switch of radio slot 0"
  slot1                          kvt_boolean                "Switch of radio slot 1"
  slot2                          kvt_boolean                "Switch of radio slot 2"
  parent_wlan_oid                kvt_oid -> table tbl_wlan  "Reference into tbl_wlan: the parent WLAN"
  parent_apfvap_profilename_key  kvt_vstring                "Profile name of the parent"

struct st_internal_wlan_radio_policy_notify 54375bd238b9261c9351d7189bf45581 "Notification about a radio policy"
  notify_admin_status            kvt_boolean                                      "Administrative status carried with the notification"
  generation_id                  u_int64                                          "Generation the notification speaks of"
  wlan_radio_policy_notify_flag  flg_internal_wlan_radio_policy_notify            "Flag set with the one bit TBL_INT_WLAN_RADIO_POLICY_NOTIFY"
  wlan_radio_policy_rec_ref      kvt_oid -> struct st_internal_wlan_radio_policy  "Reference to the st_internal_wlan_radio_policy object that the notification speaks of"

table tbl_internal_wlan_radio_policy st_internal_wlan_radio_policy "Radio policies by band"
  luid    4fe13f83f090204df539f661a6dd778c
  record  07373d7a6f910a265288eaa853a9b76e
  key     band

expect st_internal_wlan_radio_policy variant 0 size 120 block 7
