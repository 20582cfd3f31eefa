#include "config/PrinterConfig.h"

#include <gtest/gtest.h>

#include <map>
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
  PrinterConfig config(dir.write("config.ini", sampleConfig({{"environment", " 1 "}, {"PictureRetentionDays", "30"}})));
  const PrinterConfigValues v = config.load();
  EXPECT_EQ(v.PictureRetentionDays, 30);
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

// Picture retention is opt-in: a config.ini without it, or with it empty, keeps every picture.
TEST(PrinterConfig, PictureRetentionAbsentOrEmptyIsZero) {
  TempDir dir;
  for (const std::string extra : {"", "[PictureRetentionDays]\nvalue=\n", "[PictureRetentionDays]\nvalue= 0 \n"}) {
    PrinterConfig config(dir.write("config.ini", sampleConfig({}) + extra));
    EXPECT_EQ(config.load().PictureRetentionDays, 0) << extra;
  }
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

// Settings are read in a fixed order, each stored as it is read: the first bad one decides the
// error, and what was read before it stays in the instance.
TEST(PrinterConfig, AFailingSettingKeepsTheOnesReadBeforeIt) {
  struct Case {
    const char* name;
    std::map<std::string, std::string> overrides;
    const char* error;
    const char* kept;  // PrinterName|ScreenId|the nine read integers in field order
    bool withFile = true;
  };
  const Case cases[] = {
      {"first integer bad, a later one too wide", {{"FourWidth", "abc"}, {"environment", "99999999999"}},
       "invalid stoi argument", "EPSON L8160 Series|SCREEN-001|0|0|0|0|0|0|0|0|0"},
      {"one too wide before a missing one", {{"ThreeSize", "4294967296"}, {"environment", ""}},
       "stoi argument out of range", "EPSON L8160 Series|SCREEN-001|100|150|80|80|15|7|11|0|0"},
      {"the last one missing", {{"environment", ""}},
       "invalid stoi argument", "EPSON L8160 Series|SCREEN-001|100|150|80|80|15|7|11|12|0"},
      {"no file at all", {}, "invalid stoi argument", "||0|0|0|0|0|0|0|0|0", false},
      {"retention days not a number, read last", {{"PictureRetentionDays", "a month"}},
       "invalid stoi argument", "EPSON L8160 Series|SCREEN-001|100|150|80|80|15|7|11|12|0"},
  };
  for (const auto& c : cases) {
    TempDir dir;
    PrinterConfig config(c.withFile ? dir.write("config.ini", sampleConfig(c.overrides)) : dir.file("none.ini"));
    try {
      config.load();
      ADD_FAILURE() << c.name << ": no error";
    } catch (const std::exception& e) {
      EXPECT_STREQ(e.what(), c.error) << c.name;
    }
    const auto& v = config.values();
    std::string kept = v.PrinterName + "|" + v.ScreenId;
    for (const std::int32_t n : {v.FourWidth, v.FourHeight, v.ThreeWidth, v.ThreeHeight, v.Rearfeeder,
                                 v.Paperffder1, v.FourSize, v.ThreeSize, v.environment})
      kept += "|" + std::to_string(n);
    EXPECT_EQ(kept, c.kept) << c.name;
  }
}

TEST(PrinterConfig, EmptyPathReadsNothing) {
  PrinterConfig config("");
  const PrinterConfigValues v = config.load();
  EXPECT_EQ(v.FourWidth, 0);
  EXPECT_EQ(v.PrinterName, "");
}

}  // namespace
}  // namespace kps
