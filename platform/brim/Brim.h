// Brim: shared-memory counter tables. One writer process publishes keyed records
// that reader processes look up and walk without locks; see TableWriter.h and
// TableReader.h. The agent wraps tables in its own objects; tools use the reader.
#pragma once

#include "brim/Cursor.h"
#include "brim/Exceptions.h"
#include "brim/SharedObject.h"
#include "brim/TableReader.h"
#include "brim/TableWriter.h"
