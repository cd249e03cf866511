// The table text of a view: the first column left-aligned, the others
// right-aligned, two spaces apart, every row on its own line.
#include <gtest/gtest.h>

#include "tools/vornctl/Views.h"

namespace {

TEST(ViewText, FirstColumnLeftOthersRightTwoSpacesApart) {
  Ctl::View v(Ctl::Output::kText);
  v.header = {"Port", "InOctets"};
  v.rows = {{"Ethernet1", "5"}, {"Ethernet10", "1,234,567"}};
  EXPECT_EQ(v.text(),
            "Port         InOctets\n"
            "Ethernet1           5\n"
            "Ethernet10  1,234,567\n");
}

TEST(ViewText, HeaderAloneWhenThereAreNoRows) {
  Ctl::View v(Ctl::Output::kText);
  v.header = {"Vlan", "InPkts"};
  EXPECT_EQ(v.text(), "Vlan  InPkts\n");
  EXPECT_TRUE(v.empty());
}

TEST(ViewText, NonAsciiNamesArePaddedByTheCharactersShown) {
  Ctl::View v(Ctl::Output::kText);
  v.header = {"Port", "Name", "Oper"};
  // A kernel name may hold UTF-8; "é" is two bytes but one character.
  v.rows = {{"Ethernet1", "caf\xc3\xa9", "up"}, {"Ethernet2", "eth0", "down"}};
  EXPECT_EQ(v.text(),
            "Port       Name  Oper\n"
            "Ethernet1  caf\xc3\xa9    up\n"
            "Ethernet2  eth0  down\n");
}

TEST(ViewText, JsonViewIsEmptyUntilItHasJsonRows) {
  Ctl::View v(Ctl::Output::kJson);
  EXPECT_TRUE(v.empty());
  v.json.push_back({{"vlan", 1}});
  EXPECT_FALSE(v.empty());
}

}  // namespace
