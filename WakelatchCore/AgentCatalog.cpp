#include "WakelatchCore/AgentCatalog.h"
