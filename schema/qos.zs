# Radio policy, QoS and access policies of a WLAN.
# The language: docs/schema.md.

enum enm_auto_qos_policy 1ff135342e825ce1158d003d9a0b2361 "Auto-QoS policy of a WLAN"
  VAP_QOS_NONE        "None"
  VAP_QOS_ENTERPRISE  "Enterprise"
  VAP_QOS_VOICE       "Voice"
  VAP_QOS_GUEST       "Guest"

enum enm_qos_wmm_status 00d9f4ad53a2f2b633f5f28807f0cbd4 "Use of WMM"
  QOS_DISABLED  "Off"
  QOS_ALLOWED   "Allowed"
  QOS_REQUIRED  "Required"

struct st_wlan_policies_settings f1805e7d7fb396decb8f09e1c8dbb0bb "Radio policy and QoS"
  radio_policy  enm_radio_policy      "Radio policy"
  wlan_qos      st_wlan_qos_settings  "QoS settings"

struct st_wlan_qos_settings 307210b23c8e0645088560c9d33db938 "QoS settings"
  auto_qos_policy        enm_auto_qos_policy  "Auto-QoS policy"
  flow_monitor_ipv4      st_user_qos_policy   "IPv4 flow monitor: ingress and egress names"
  flow_monitor_ipv6      st_user_qos_policy   "IPv6 flow monitor: ingress and egress names"
  flow_monitor_datalink  st_user_qos_policy   "Datalink flow monitor: ingress and egress names"
  per_ssid_override      st_user_qos_policy   "Per-SSID override: ingress and egress names"
  per_client_override    st_user_qos_policy   "Per-client override: ingress and egress names"
  qos_wmm_status         enm_qos_wmm_status   "WMM status"

struct st_user_qos_policy 374bc70b177e002f8dc036a37cfea63f "Names of an ingress and an egress profile"
  ingress_profile_name  kvt_vstring  "Name of the ingress profile"
  egress_profile_name   kvt_vstring  "Name of the egress profile"

struct st_wlan_access_policies_settings e26c35700c5127ec5d88b03c0b4debb8 "Access policies"
  multicast_enabled       kvt_boolean  "Multicast enabled"
  multicast_intf_name     kvt_vstring  "Name of the multicast interface"
  device_classification   kvt_boolean  "Device classification enabled"
  subscriber_policy_name  kvt_vstring  "Name of the subscriber policy"
  radius_profiling        kvt_boolean  "RADIUS profiling enabled"
  http_tlv_caching        kvt_boolean  "HTTP TLV caching enabled"

expect st_wlan_policies_settings variant 0 size 224 block 19
