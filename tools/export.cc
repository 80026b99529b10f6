// export: every record of every table as one XML document, which import takes again.
#include "tools/commands.h"
#include "tools/store.h"
#include "tools/text.h"

namespace wlanctl {

void run_export(const Options& options) {
  const Store store = Store::open_database(options, Open::kSnapshot);
  std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<zarn_wlan>\n";
  for (const Table& table : tables()) {
    for_each_record(store, table, [&](void* record) { text += laid_out(record_xml(store, table, record), 1); });
  }
  text += "</zarn_wlan>\n";
  if (options.file.empty()) {
    write_output(text);
  } else {
    write_file(options.file, text);
  }
}

}  // namespace wlanctl
