// The functions of tables. Made by zarnc from the schema of toy; not to be edited.
#include "toy_schema.h"
#include "zarn_wlan/src/lookup.h"
#include "zarn_wlan/src/membership.h"
#include "zarn_wlan/src/record.h"
#include "zarn_wlan/src/record_serial.h"
#include "zarn_wlan/src/table_handle.h"

