# The sibling modules: common types that the WLAN schema borrows.
# The language: docs/schema.md.

module qep_comm 2

module rudd_common 3
  flag flg_wlan_notify

module zarn_enum_types 4
  enum enm_radio_policy
  enum enm_CryptType
  enum enm_nas_id_option_kvt
  enum enm_rlan_fallback_type
  enum enm_wlanmgr_pending_notifications
  enum enm_wlan_mdns_sd_cfg
  enum enm_zarn_dot11_radio_band
  enum ft_dot11r_mode
  enum sae_pwe_mode_type

module zarn_types 5
  struct st_apf_vap_802_11bg

module zarn_tag_common 6
  struct st_profile_assoicated_tag

module zarn_config_db_const_defs 7

enum enm_radio_policy 422acab59248b974bf416c30f1f0742a "Radios that carry a WLAN"
  RADIO_POLICY_ALL     "All radios"
  RADIO_POLICY_A_ONLY  "802.11a only"
  RADIO_POLICY_G_ONLY  "802.11g only"
  RADIO_POLICY_BG      "802.11b and 802.11g"
  RADIO_POLICY_AG      "802.11a and 802.11g"

enum enm_CryptType 3a7cfb366088155f476354b65ed08d6b "How a stored key is protected"
  CRYPT_NONE  "Not encrypted by the writer"
  CRYPT_AES   "Encrypted with AES"

enum enm_nas_id_option_kvt 26ad41ef88c279d937c990fad57dcafd "What a NAS identifier is made of"
  NAS_ID_OPTION_NONE         "Nothing"
  NAS_ID_OPTION_SYSTEM_NAME  "Name of the controller"
  NAS_ID_OPTION_SYSTEM_IP    "IP address of the controller"
  NAS_ID_OPTION_SYSTEM_MAC   "MAC address of the controller"
  NAS_ID_OPTION_AP_NAME      "Name of the AP"
  NAS_ID_OPTION_AP_MAC       "MAC address of the AP"
  NAS_ID_OPTION_SSID         "SSID"
  NAS_ID_OPTION_CUSTOM       "The custom text of the option"

enum enm_rlan_fallback_type 0e0bc896afbec9a66dbb8cb8ef65ed78 "What a remote LAN falls back to when authentication fails"
  RLAN_FALLBACK_NONE   "Nothing"
  RLAN_FALLBACK_MAC    "MAC authentication"
  RLAN_FALLBACK_DOT1X  "802.1X"

enum enm_wlanmgr_pending_notifications da0aea0eaa72870bdd63d2a5d1764460 "Notification that is still to be sent for a WLAN"
  WLANMGR_PENDING_NONE    "None"
  WLANMGR_PENDING_CREATE  "WLAN created"
  WLANMGR_PENDING_UPDATE  "WLAN changed"
  WLANMGR_PENDING_DELETE  "WLAN deleted"

enum enm_wlan_mdns_sd_cfg d17737815438a5b507bda21c604af42a "mDNS service discovery on a WLAN"
  MDNS_SD_BRIDGE   "Frames are bridged"
  MDNS_SD_GATEWAY  "Frames go through the gateway"
  MDNS_SD_DROP     "Frames are dropped"

enum enm_zarn_dot11_radio_band 84d0c3f0b2e73ae0eee45145f585675f "Radio band"
  DOT11_RADIO_BAND_2_4_GHZ  "2.4 GHz"
  DOT11_RADIO_BAND_5_GHZ    "5 GHz"
  DOT11_RADIO_BAND_6_GHZ    "6 GHz"

enum ft_dot11r_mode aa5bf36518677db75c80f9be67fd4c1e "802.11r fast transition"
  DOT11R_DISABLED  "Off"
  DOT11R_ENABLED   "On"
  DOT11R_MIXED     "On, and clients without it are served"

enum sae_pwe_mode_type 70faf36fb78eda4fea394aba6a42ed19 "How SAE derives the password element"
  SAE_PWE_HUNTING_AND_PECKING  "Hunting and pecking"
  SAE_PWE_HASH_TO_ELEMENT      "Hash to element"
  SAE_PWE_BOTH                 "Either, as the client asks"

flag flg_wlan_notify 0f4bf777e1030fe1ca1ab21554c6c4b3 "Which tables a notification about WLANs concerns"
  TBL_WLAN_NOTIFY  "WLAN profiles"

struct st_apf_vap_802_11bg 2e0126319a72180d908a3e291dd257d5 "802.11b/g configuration of a VAP"
  vap_radio_policy  enm_radio_policy  "Radios that carry the VAP"

struct st_profile_assoicated_tag cc31d7b90ff191f0fed5ce26af1ac6da "Tag that uses a WLAN profile"
  tag_name       kvt_vstring  "Tag name; the key of tbl_wlan_profile_assoicated_tag"
  description    kvt_vstring  "Free text"
  generation_id  u_int64      "Generation number of the record"
  ap_count       u_int32      "APs that carry the tag"
  is_default     kvt_boolean  "The tag is the default one"

expect st_apf_vap_802_11bg variant 0 size 24 block 1
