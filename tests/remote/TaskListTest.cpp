#include "remote/TaskList.h"

#include <gtest/gtest.h>

namespace kps {
namespace {

TEST(PictureKey, OnlyKeysNamingAFileUnderTheWorkingDirectory) {
  const char* const leaves = "leaves the working directory";
  const char* const noFile = "does not name a file";
  struct Case {
    std::string key;
    const char* problem;
  };
  const Case cases[] = {
      {"a.jpg", nullptr},        {"a/b/c.jpg", nullptr},   {"..a/b.jpg", nullptr},  // fuzz regression
      {"a/..b/c..", nullptr},    {"a\\b.jpg", nullptr},    {"../a.jpg", leaves},
      {"a/../../b.jpg", leaves}, {"a\\..\\b.jpg", leaves}, {"..", leaves},
      {"/etc/x", leaves},        {"\\\\server\\x", leaves}, {"C:\\x.jpg", leaves},
      {"c:x.jpg", leaves},       {"", noFile},             {"x/", noFile},
      {".", noFile},             {"a/./b.jpg", noFile},    {"a//b.jpg", noFile},
      {std::string("a\0b", 3), "holds a NUL character"},
  };
  for (const auto& c : cases) {
    const char* problem = pictureKeyProblem(c.key);
    EXPECT_STREQ(problem ? problem : "(none)", c.problem ? c.problem : "(none)") << c.key;
  }
}

}  // namespace
}  // namespace kps
