#include "remote/TaskList.h"

#include <gtest/gtest.h>

namespace kps {
namespace {

TEST(PictureKey, OnlyKeysThatStayUnderTheWorkingDirectory) {
  struct Case {
    std::string key;
    bool safe;
  };
  const Case cases[] = {
      {"a.jpg", true},           {"a/b/c.jpg", true},      {"..a/b.jpg", true},  // fuzz regression
      {"a/..b/c..", true},       {"a\\b.jpg", true},       {"../a.jpg", false},
      {"a/../../b.jpg", false},  {"a\\..\\b.jpg", false},  {"..", false},
      {"/etc/x", false},         {"\\\\server\\x", false}, {"C:\\x.jpg", false},
      {"c:x.jpg", false},        {"", false},              {std::string("a\0b", 3), false},
  };
  for (const auto& c : cases) EXPECT_EQ(isSafePictureKey(c.key), c.safe) << c.key;
}

}  // namespace
}  // namespace kps
