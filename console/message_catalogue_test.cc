#include "console/message_catalogue.h"

#include <gtest/gtest.h>

namespace {

// Whether the catalogue is installed in the test product directory depends on
// the whole-program tests, so these keys are ones that no catalogue holds.
TEST(GetMessageText, MissingEntryGivesTheKeyItselfAndTextsStayValid) {
  const char* first = GetMessageText("schscan_test_absent_key_1");
  const char* second = GetMessageText("Some plain English sentence.\n");
  EXPECT_STREQ(GetMessageText("schscan_test_absent_key_2"), "schscan_test_absent_key_2");
  EXPECT_STREQ(first, "schscan_test_absent_key_1");
  EXPECT_STREQ(second, "Some plain English sentence.\n");
}

}  // namespace
