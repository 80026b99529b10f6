// Domain rules, and the variant of an object under them.
#include "platform/domain.h"

#include <algorithm>

#include "platform/handle.h"

namespace kvt {
namespace {

std::string_view luid_of(const kvt_type_record* record) {
  return {reinterpret_cast<const char*>(record->luid), sizeof record->luid};
}

DomainRules::Rule& rule_of(kvt_handle* handle, const kvt_type_record* record) {
  DomainRules& rules = handle->runtime->rules;
  // Set with the first rule, so that a domain without any costs its readers one test.
  handle->domain.rules = &rules;
  return rules.by_luid[std::string(luid_of(record))];
}

const DomainRules::Rule* find(const kvt_domain* domain, const kvt_type_record* record) {
  if (!domain || !domain->rules || !record) return nullptr;
  const auto& rules = static_cast<const DomainRules*>(domain->rules)->by_luid;
  auto found = rules.find(luid_of(record));
  return found == rules.end() ? nullptr : &found->second;
}

}  // namespace
}  // namespace kvt

int kvt_domain_set_variant(kvt_handle* handle, const kvt_type_record* record, int variant) {
  kvt::rule_of(handle, record).variant = std::clamp(variant, -1, kvt::kVariantUnlimited);
  return 0;
}

int kvt_domain_allow_table(kvt_handle* handle, const kvt_type_record* record, int allowed) {
  kvt::rule_of(handle, record).table_allowed = allowed != 0;
  return 0;
}

int kvt_domain_rule_variant(const kvt_domain* domain, const kvt_type_record* record) {
  const kvt::DomainRules::Rule* rule = kvt::find(domain, record);
  return rule ? rule->variant : kvt::kVariantUnlimited;
}

int kvt_domain_lookup_table_ok(kvt_handle*, const kvt_domain* domain, const kvt_type_record* record, int*) {
  const kvt::DomainRules::Rule* rule = kvt::find(domain, record);
  return rule ? rule->table_allowed : 1;
}
