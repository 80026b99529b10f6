// list, show, find: the reading commands.
#include <zarn_wlan/zarn_wlan.h>

#include <vector>

#include "tools/commands.h"
#include "tools/references.h"
#include "tools/store.h"
#include "tools/text.h"

namespace wlanctl {
namespace {

// One profile as `list` and `find` show it.
struct Row {
  std::uint32_t id = 0;
  std::string name;
  std::string ssid;
  bool enabled = false;
  bool broadcast = false;
  std::string kind;
  std::string security;
  std::string pmf;
  std::string interface_name;
};

// Calls of one object in a row; a failure stays in `err` and makes the later ones do nothing.
struct Reader {
  kvt_handle* h;
  int err = 0;

  template <class Get>
  auto get(Get function, void* object) {
    return function(h, KVT_NO_TXN, object, &err);
  }
  std::string text(void* field) const {
    return err == 0 && field != nullptr ? std::string(kvt_vstring_text(field), kvt_vstring_length(field))
                                        : std::string();
  }
};

std::string joined(const std::vector<std::string>& words) {
  std::string out;
  for (const std::string& word : words) out += (out.empty() ? "" : "+") + word;
  return out;
}

std::string wpa_summary(Reader& read, void* auth) {
  void* wpa = read.get(st_l2_auth_type_security_wpa_wpa2_get, auth);
  void* keys = read.get(st_wpa_wpa2_wpa_auth_key_mgmt_get, wpa);
  void* psk = read.get(st_wpa_auth_key_mgmt_wpa_psk_get, keys);
  void* fast = read.get(st_wpa_auth_key_mgmt_wpa_ft_get, keys);
  std::vector<std::string> versions;
  if (read.get(st_wpa_wpa2_wpa1_enabled_get_value, wpa)) versions.emplace_back("WPA");
  if (read.get(st_wpa_wpa2_wpa2_enabled_get_value, wpa)) versions.emplace_back("WPA2");
  if (read.get(st_wpa_wpa2_wpa3_enabled_get_value, wpa)) versions.emplace_back("WPA3");
  std::vector<std::string> methods;
  if (read.get(st_wpa_auth_key_mgmt_wpa_dot1x_get_value, keys) ||
      read.get(st_wpa_auth_key_mgmt_wpa_dot1x_sha256_get_value, keys) ||
      read.get(wpa_ft_type_ft_dot1x_get_value, fast)) {
    methods.emplace_back("802.1X");
  }
  if (read.get(st_wpa_wpa2_wpa_mpsk_enable_get_value, wpa)) {
    methods.emplace_back("MPSK");
  } else if (read.get(wpa_psk_type_wpa_psk_enable_get_value, psk) ||
             read.get(st_wpa_auth_key_mgmt_wpa_psk_sha256_get_value, keys) ||
             read.get(wpa_ft_type_ft_psk_get_value, fast)) {
    methods.emplace_back("PSK");
  }
  if (read.get(st_wpa_auth_key_mgmt_wpa_sae_get_value, keys) || read.get(wpa_ft_type_ft_sae_get_value, fast)) {
    methods.emplace_back("SAE");
  }
  if (read.get(st_wpa_auth_key_mgmt_wpa_owe_get_value, keys)) methods.emplace_back("OWE");
  return joined(versions) + " " + joined(methods);
}

std::string security_summary(Reader& read, void* security) {
  void* layer2 = read.get(st_wlan_security_settings_l2_security_get, security);
  void* layer3 = read.get(st_wlan_security_settings_l3_security_get, security);
  void* auth = read.get(st_l2_security_settings_l2_auth_get, layer2);
  std::string text;
  switch (read.get(st_l2_auth_type_security_type_get_value, auth)) {
    case WPA_WPA2:
      text = wpa_summary(read, auth);
      break;
    case DOT1X:
      text = "802.1X";
      break;
    case STATIC_WEP:
      text = "WEP";
      break;
    case STATIC_WEP_DOT1X:
      text = "WEP+802.1X";
      break;
    default:
      text = "open";
      break;
  }
  if (read.get(st_l3_security_settings_web_policy_get_value, layer3)) text += ", web login";
  return text;
}

std::string pmf_summary(Reader& read, void* security) {
  void* layer2 = read.get(st_wlan_security_settings_l2_security_get, security);
  void* auth = read.get(st_l2_security_settings_l2_auth_get, layer2);
  switch (read.get(st_wpa_pmf_params_pmf_options_get_value, read.get(st_l2_auth_type_wpa_pmf_get, auth))) {
    case FEATURE_REQUIRED:
      return "required";
    case FEATURE_OPTIONAL:
      return "optional";
    default:
      return "off";
  }
}

Row row_of(kvt_handle* handle, void* profile) {
  Reader read{handle};
  Row row;
  row.id = read.get(st_wlan_wlan_id_get_value, profile);
  row.name = read.text(read.get(st_wlan_profile_name_get, profile));
  row.ssid = read.text(read.get(st_wlan_ssid_get, profile));
  row.enabled = read.get(st_wlan_status_get_value, profile) != 0;
  row.broadcast = read.get(st_wlan_broadcast_ssid_get_value, profile) != 0;
  row.kind = read.get(st_wlan_is_remote_lan_get_value, profile)  ? "remote LAN"
             : read.get(st_wlan_is_guest_lan_get_value, profile) ? "guest LAN"
                                                                 : "WLAN";
  void* security = read.get(st_wlan_wlan_security_get, profile);
  row.security = security_summary(read, security);
  row.pmf = pmf_summary(read, security);
  void* client = read.get(st_wlan_wlan_client_conf_get, profile);
  row.interface_name = read.text(read.get(st_wlan_client_settings_interface_name_get, client));
  if (read.err != 0) throw Failure("a profile cannot be read" + reason(read.err));
  return row;
}

std::string rows_as_json(const std::vector<Row>& rows) {
  std::string text = "[";
  for (const Row& row : rows) {
    text += text.size() == 1 ? "\n" : ",\n";
    text += "  {\"wlan_id\": " + std::to_string(row.id) + ", \"profile_name\": " + json_string(row.name) +
            ", \"ssid\": " + json_string(row.ssid) + ", \"enabled\": " + (row.enabled ? "true" : "false") +
            ", \"broadcast\": " + (row.broadcast ? "true" : "false") + ", \"kind\": " + json_string(row.kind) +
            ", \"security\": " + json_string(row.security) + ", \"pmf\": " + json_string(row.pmf) +
            ", \"interface\": " + json_string(row.interface_name) + "}";
  }
  return text + (rows.empty() ? "]\n" : "\n]\n");
}

std::string rows_as_table(const std::vector<Row>& rows) {
  std::vector<std::vector<std::string>> lines = {
      {"ID", "PROFILE", "SSID", "STATUS", "KIND", "SECURITY", "PMF", "INTERFACE"}};
  for (const Row& row : rows) {
    lines.push_back({std::to_string(row.id), one_line(row.name),
                     one_line(row.ssid) + (row.broadcast ? "" : " (hidden)"), row.enabled ? "on" : "off", row.kind,
                     row.security, row.pmf, one_line(row.interface_name)});
  }
  return table_lines(lines);
}

void write_rows(const std::vector<Row>& rows, bool json) {
  write_output(json ? rows_as_json(rows) : rows_as_table(rows));
}

// The other tables are listed by what tells their records apart.
void list_keys(const Store& store, const Table& table, bool json) {
  std::vector<std::vector<std::string>> lines(1);
  std::string objects = "[";
  for (const Key& key : table.keys) lines.front().emplace_back(key.field);
  for_each_record(store, table, [&](void* record) {
    void* payload = table.payload_of(store.handle(), KVT_NO_TXN, record);
    std::vector<std::string> line;
    std::string members;
    for (const Key& key : table.keys) {
      const std::string value = key_text(store.handle(), table, key, payload);
      const bool number = key.kind == KeyKind::kByte || key.kind == KeyKind::kWord;
      members += (members.empty() ? "" : ", ") + json_string(key.field) + ": " + (number ? value : json_string(value));
      line.push_back(one_line(value));
    }
    objects += std::string(objects.size() == 1 ? "\n" : ",\n") + "  {" + members + "}";
    lines.push_back(std::move(line));
  });
  write_output(json ? objects + (objects.size() == 1 ? "]\n" : "\n]\n") : table_lines(lines));
}

}  // namespace

void run_list(const Options& options) {
  const Store store = Store::open_database(options, Open::kSnapshot);
  const Table& table = options.table.empty() ? profiles() : *table_named(options.table);
  if (&table != &profiles() && &table != &group_profiles()) return list_keys(store, table, options.json);
  std::vector<Row> rows;
  for_each_record(store, table, [&](void* record) {
    rows.push_back(row_of(store.handle(), table.payload_of(store.handle(), KVT_NO_TXN, record)));
  });
  write_rows(rows, options.json);
}

void run_show(const Options& options) {
  const Store store = Store::open_database(options, Open::kSnapshot);
  const Table& table = options.table.empty() ? profiles() : *table_named(options.table);
  void* record = require_record(store, table, options.key);
  void* payload = table.payload_of(store.handle(), KVT_NO_TXN, record);
  write_output(printable(laid_out(record_xml(store, table, record), 0)) + reference_lines(store, table, payload));
}

void run_find(const Options& options) {
  const Store store = Store::open_database(options, Open::kSnapshot);
  // Only the group's table is ordered by SSID; it holds the number and the name as well.
  struct {
    const char* field;
    std::string value;
  } wanted = options.id     ? decltype(wanted){"wlan_id", std::to_string(*options.id)}
             : options.name ? decltype(wanted){"profile_name", *options.name}
                            : decltype(wanted){"ssid", options.ssid.value_or("")};
  for (const Table* table : {&profiles(), &group_profiles()}) {
    for (const Key& key : table->keys) {
      if (std::string_view(key.field) != wanted.field) continue;
      void* record = find_record(store, *table, key, wanted.value);
      if (record == nullptr) continue;
      return write_rows({row_of(store.handle(), table->payload_of(store.handle(), KVT_NO_TXN, record))}, options.json);
    }
  }
  throw Failure("no profile has " + std::string(wanted.field) + " \"" + wanted.value + "\"");
}

}  // namespace wlanctl
