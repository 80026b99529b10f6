# Layer-3 security, AAA settings and the wireless AAA policy.
# The language: docs/schema.md.

flag flg_wireless_aaa_policy_notify aed09b824ca87fc2bfb637dd5bae2d26 "Which tables a notification about AAA policies concerns"
  TBL_WIRELESS_AAA_POLICY_NOTIFY  "AAA policies"

struct st_l3_security_settings 2893cbded352896ee4c13de87b282131 "Layer-3 settings"
  web_policy             kvt_boolean          "Web policy enabled"
  param_map              kvt_vstring          "Name of the parameter map"
  authentication_list    kvt_vstring          "Name of the authentication method list"
  authorization_list     kvt_vstring          "Name of the authorization method list"
  cond_web_redirect      kvt_boolean          "Conditional web redirect"
  splash_web_redirect    kvt_boolean          "Splash web redirect"
  on_mac_filter_failure  kvt_boolean          "Web authentication on MAC filter failure"
  web_pre_auth_acl       st_web_pre_auth_acl  "ACLs before web authentication"

struct st_web_pre_auth_acl d4b5d4fa2d9607681db8f0bae2da79a0 "ACLs before web authentication"
  ipv4_acl  kvt_vstring  "Name of the IPv4 ACL"
  ipv6_acl  kvt_vstring  "Name of the IPv6 ACL"

struct st_wlan_aaa_settings d1afcc826acd9013a604d94a7ca4e079 "AAA settings"
  aaa_override    kvt_boolean        "AAA override allowed"
  local_eap_auth  st_local_eap_auth  "Local EAP authentication"

struct st_local_eap_auth 8da283a819dfa607a8c02b7421c4e3ee "Local EAP authentication"
  enable        kvt_boolean  "Local EAP authentication enabled"
  profile_name  kvt_vstring  "Name of the EAP profile"

struct st_wireless_aaa_policy e22c53cfb7d705339bef6032676b67ff "Wireless AAA policy"
  policy_name          kvt_vstring               "Policy name; the key of tbl_wireless_aaa_policy"
  generation_id        u_int64                   "Generation number of the record"
  nas_id               st_nas_id_aaa             "NAS identifier options"
  aaa_realm            kvt_boolean               "AAA realm switch"
  accounting_list      kvt_vstring    variant 1  "Name of the accounting method list"
  authentication_list  kvt_vstring    variant 1  "Name of the authentication method list"

struct st_nas_id_aaa 27b73dac2d4d1aefe8d72c889b301b35 "NAS identifier options"
  option1                enm_nas_id_option_kvt             "First NAS identifier option"
  option2                enm_nas_id_option_kvt             "Second option"
  option3                enm_nas_id_option_kvt             "Third option"
  custom_string_option1  kvt_vstring            variant 1  "Custom text of the first option"
  custom_string_option2  kvt_vstring            variant 1  "Custom text of the second option"
  custom_string_option3  kvt_vstring            variant 1  "Custom text of the third option"

struct st_wireless_aaa_policy_notify 70c18e4b9da892c2ff6e585b35bf1c3f "Notification about a wireless AAA policy"
  notify_admin_status              kvt_boolean                               "Administrative status carried with the notification"
  generation_id                    u_int64                                   "Generation the notification speaks of"
  wireless_aaa_policy_notify_flag  flg_wireless_aaa_policy_notify            "Flag set with the one bit TBL_WIRELESS_AAA_POLICY_NOTIFY"
  wireless_aaa_policy_rec_ref      kvt_oid -> struct st_wireless_aaa_policy  "Reference to the st_wireless_aaa_policy object that the notification speaks of"

table tbl_wireless_aaa_policy st_wireless_aaa_policy "Wireless AAA policies by name"
  luid    5346073d41cc94a43760a4e9e2683655
  record  933a604477e7c5eabccc00927390ef8c
  key     policy_name

expect st_wireless_aaa_policy variant 1 size 144 block 12
