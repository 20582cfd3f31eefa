#include "config/PrinterConfig.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/support/SampleConfig.h"
#include "tests/support/TempDir.h"

namespace kps {
namespace {

struct ConversionCase {
  const char* text;
  std::int32_t value;
};

TEST(ToInt32, ConvertsLikeTheStandardLibrary) {
  const ConversionCase cases[] = {
      {"0", 0},           {"42", 42},         {"  7", 7},        {"\t-13", -13},
      {"+5", 5},          {"12abc", 12},      {"2147483647", 2147483647},
      {"-2147483648", -2147483647 - 1},       {"007", 7},        {"3.9", 3},
  };
  for (const auto& c : cases) EXPECT_EQ(toInt32(c.text), c.value) << c.text;
}

TEST(ToInt32, FailsWithTheFixedMessages) {
  for (const char* text : {"", "abc", "  ", "-", "+x", "=1"}) {
    try {
      toInt32(text);
      ADD_FAILURE() << "no error for '" << text << "'";
    } catch (const std::invalid_argument& e) {
      EXPECT_STREQ(e.what(), "invalid stoi argument") << text;
    }
  }
  for (const char* text : {"2147483648", "-2147483649", "99999999999", "999999999999999999999"}) {
    try {
      toInt32(text);
      ADD_FAILURE() << "no error for '" << text << "'";
    } catch (const std::out_of_range& e) {
      EXPECT_STREQ(e.what(), "stoi argument out of range") << text;
    }
  }
}

TEST(PrinterConfig, LoadsEverySettingFromItsOwnSection) {
  TempDir dir;
  PrinterConfig config(dir.write("config.ini", sampleConfig({{"environment", " 1 "}})));
  const PrinterConfigValues v = config.load();
  EXPECT_EQ(v.PrinterName, "EPSON L8160 Series");
  EXPECT_EQ(v.ScreenId, "SCREEN-001");
  EXPECT_EQ(v.FourWidth, 100);
  EXPECT_EQ(v.FourHeight, 150);
  EXPECT_EQ(v.ThreeWidth, 80);
  EXPECT_EQ(v.ThreeHeight, 80);
  EXPECT_EQ(v.Rearfeeder, 15);
  EXPECT_EQ(v.Paperffder1, 7);
  EXPECT_EQ(v.unused, 0);
  EXPECT_EQ(v.FourSize, 11);
  EXPECT_EQ(v.ThreeSize, 12);
  EXPECT_EQ(v.environment, 1);
}

TEST(PrinterConfig, MissingTextSettingsStayEmpty) {
  TempDir dir;
  PrinterConfig config(dir.write("config.ini", sampleConfig({{"PrinterName", ""}, {"ScreenId", ""}})));
  const PrinterConfigValues v = config.load();
  EXPECT_EQ(v.PrinterName, "");
  EXPECT_EQ(v.ScreenId, "");
  EXPECT_EQ(v.FourWidth, 100);
}

TEST(PrinterConfig, MisspelledKeyLeavesNameEmpty) {
  TempDir dir;
  std::string text = sampleConfig({});
  text.replace(text.find("name="), 5, "Name=");
  PrinterConfig config(dir.write("config.ini", text));
  EXPECT_EQ(config.load().PrinterName, "");
}

TEST(PrinterConfig, AllUnderOneSectionIsNotFound) {
  TempDir dir;
  PrinterConfig config(dir.write("config.ini", "[settings]\nname=P\nwidth=1\nheight=2\nvalue=3\n"));
  EXPECT_THROW(config.load(), std::invalid_argument);
}

TEST(PrinterConfig, MissingFileFailsAtTheFirstInteger) {
  PrinterConfig config("/nonexistent/config.ini");
  try {
    config.load();
    FAIL() << "expected invalid_argument";
  } catch (const std::invalid_argument& e) {
    EXPECT_STREQ(e.what(), "invalid stoi argument");
  }
}

TEST(PrinterConfig, BadIntegersThrow) {
  TempDir dir;
  PrinterConfig noEnvironment(dir.write("a.ini", sampleConfig({{"environment", ""}})));
  EXPECT_THROW(noEnvironment.load(), std::invalid_argument);
  PrinterConfig tooWide(dir.write("b.ini", sampleConfig({{"FourWidth", "99999999999"}})));
  EXPECT_THROW(tooWide.load(), std::out_of_range);
}

TEST(PrinterConfig, EmptyPathReadsNothing) {
  PrinterConfig config("");
  const PrinterConfigValues v = config.load();
  EXPECT_EQ(v.FourWidth, 0);
  EXPECT_EQ(v.PrinterName, "");
}

}  // namespace
}  // namespace kps
