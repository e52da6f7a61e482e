#include <gtest/gtest.h>
#include <pwd.h>

#include "taskstore/result_codes.h"
#include "taskstore/task_store.h"

namespace {

TEST(UserName, KnownAndUnknownIds) {
  std::string name = "previous contents";
  std::uint32_t code = SCHSCAN_OK;
  ASSERT_TRUE(GetUserNameFormUserID(0, name, &code));
  EXPECT_EQ(name, "root");

  const std::uint32_t unused = 3999999999u;
  ASSERT_EQ(getpwuid(unused), nullptr);
  EXPECT_FALSE(GetUserNameFormUserID(unused, name, &code));
  EXPECT_EQ(code, SCHSCAN_ERR_NAME_NOT_CONFIGURED);
}

}  // namespace
