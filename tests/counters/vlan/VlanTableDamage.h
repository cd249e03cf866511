// The VLAN tests damage table slots through the shared test helper.
#pragma once

#include "support/TableDamage.h"

namespace VlanTest {
using VornTest::TableDamage;
}  // namespace VlanTest
