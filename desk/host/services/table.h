#pragma once

#include "host/lumnode.h"

namespace desk {

/// The services table that the library is handed. What no node knows of leads to a finding.
LumNodeInterface ServicesTable();

}  // namespace desk
