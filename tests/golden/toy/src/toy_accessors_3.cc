// Field accessors. Made by zarnc from the schema of toy; not to be edited.
#include "toy_schema.h"
#include "objects/field_access.h"

