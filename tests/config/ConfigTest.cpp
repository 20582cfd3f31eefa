// config.ini as the service reads it: the file's rules, then the settings it gives.
#include <gtest/gtest.h>

#include <map>
#include <tuple>

#include "config/IniFile.h"
#include "config/PrinterConfig.h"
#include "tests/support/SampleConfig.h"
#include "tests/support/TempDir.h"

namespace kps {
namespace {

TEST(IniFile, LoadingRules) {
  // name, file, section, key, value
  const std::tuple<const char*, std::string, std::string, std::string, std::string> cases[] = {
      {"plain", "[S]\nk = v\n", "S", "k", "v"},
      {"CR LF trimmed", "[S]\r\nk = v \r\n", "S", "k", "v"},
      {"a CR LF blank line keeps the value", "[S]\r\nk=v\r\n\r\n[T]\r\nx=1\r\n", "S", "k", "v"},
      {"a line of blanks blanks the previous key", "[S]\nk=v\n   \n", "S", "k", ""},
      {"semicolon drops the line", "[S]\nk = v\nk = w ; note\n", "S", "k", "v"},
      {"hash drops the line", "[S]\nname = Printer #2\n", "S", "name", ""},
      {"leading blank: not a section", "[S]\nk=v\n  [T]\n", "S", "k", "[T]"},
      {"no closing bracket", "[S\nk=v\n", "S", "k", "v"},
      {"no closing bracket, CR LF", "[S\r\nk=v\r\n", "S\r", "k", "v"},
      {"second opening bracket: assignment", "[S]\nk=v\n[[T]\n", "S", "k", "[[T]"},
      {"further equals signs in the value", "[S]\na=b=c\n", "S", "a", "b=c"},
      {"code 1 cut, empty key", "[S]\nk = \x01v\n", "S", "", "v"},
      {"code 1 cut, last two pieces", "[S]\nk=a\x01 b \x01 c\n", "S", "b", "c"},
      {"no equals: previous key", "[S]\nk=v\n  w  \n", "S", "k", "w"},
      {"no equals before any key", "[S]\nlonely\n", "S", "", "lonely"},
      {"before the first section: dropped", "k=v\n[S]\n", "S", "k", ""},
      {"empty section name: dropped", "[]\nk=v\n", "", "k", ""},
      {"last match wins", "[S]\nk=1\nk=2\n", "S", "k", "2"},
      {"keys case-sensitive", "[S]\nName=v\n", "S", "name", ""},
      {"section blanks kept", "[ S ]\nk=v\n", "S", "k", ""},
      {"section blanks kept, exact", "[ S ]\nk=v\n", " S ", "k", "v"},
      {"empty value", "[S]\nk =   \n", "S", "k", ""},
      {"sections merge", "[S]\nk=1\n[T]\nk=t\n[S]\nk=3\n", "S", "k", "3"},
      {"binary junk", std::string("\x00\xFF\xFE[\x01=\x02\n", 8), "S", "k", ""},
  };
  for (const auto& [name, text, section, key, expected] : cases) {
    TempDir dir;
    IniFile ini;
    ASSERT_TRUE(ini.load(dir.write("config.ini", text))) << name;
    EXPECT_EQ(ini.get(section, key), expected) << name;
  }
  IniFile none;
  EXPECT_FALSE(none.load("/nonexistent/dir/config.ini"));
  EXPECT_TRUE(none.sections().empty());
}

TEST(IniFile, EditingSavingAndDumping) {
  TempDir dir;
  IniFile ini;
  EXPECT_TRUE(ini.addSection("S"));
  EXPECT_FALSE(ini.addSection("S"));
  EXPECT_FALSE(ini.setValue("missing", "k", "v"));
  EXPECT_TRUE(ini.setValue(" S ", "k", "1"));  // matched after trimming, stored as listed
  EXPECT_TRUE(ini.setValue("S", "k", "2"));    // appends, never replaces
  EXPECT_TRUE(ini.removeKey("S", "k"));
  EXPECT_EQ(ini.get("S", "k"), "2");
  ini.addSection("Gone");
  ini.setValue("Gone", "x", "y");
  ini.removeSection("Gone");
  ini.setValue("S", "url", "a=b");

  const std::string expected = "[S]\nk = 2\nurl = a=b\n\n";
  ASSERT_TRUE(ini.save(dir.file("out.ini")));
  EXPECT_EQ(dir.read("out.ini"), expected);
  testing::internal::CaptureStdout();
  ini.dump();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), expected);
  IniFile again;
  again.load(dir.file("out.ini"));
  EXPECT_EQ(again.get("S", "url"), "a=b");
  EXPECT_FALSE(ini.save(dir.path() + "/no/such/dir/out.ini"));
}

TEST(ToInt32, LikeTheStandardConversionWithItsMessages) {
  const std::pair<const char*, std::int32_t> numbers[] = {
      {"\t-13", -13}, {"+5", 5}, {"3.9", 3}, {"2147483647", 2147483647}, {"-2147483648", -2147483647 - 1}};
  for (const auto& [text, value] : numbers) EXPECT_EQ(toInt32(text), value) << text;
  const char* const invalid = "invalid stoi argument";
  const char* const range = "stoi argument out of range";
  const std::pair<const char*, const char*> errors[] = {
      {"", invalid}, {"  ", invalid}, {"-", invalid}, {"+x", invalid},
      {"2147483648", range}, {"-2147483649", range}, {"999999999999999999999", range}};
  for (const auto& [text, message] : errors) {
    try {
      toInt32(text);
      ADD_FAILURE() << "no error for '" << text << "'";
    } catch (const std::exception& e) {
      EXPECT_STREQ(e.what(), message) << text;
    }
  }
}

// A whole config.ini, and what loading it gives: the settings as they stand afterwards (read in
// a fixed order, each stored as it is read, so a failing one keeps what was read before it;
// failures at every other setting pin that order) and the error that ends the start, if any.
TEST(PrinterConfig, WhatAFileGives) {
  const std::string all = "EPSON L8160 Series|SCREEN-001|100|150|80|80|15|7|11|12|";
  struct Case {
    const char* name;
    std::string text;
    const char* error;
    std::string values;  // PrinterName|ScreenId|nine integers|PictureRetentionDays
  };
  const Case cases[] = {
      {"every setting", sampleConfig({{"environment", " 1 "}}), "", all + "1|0"},
      {"retention days", sampleConfig({{"PictureRetentionDays", "30"}}), "", all + "0|30"},
      {"retention empty", sampleConfig({}) + "[PictureRetentionDays]\nvalue=\n", "", all + "0|0"},
      {"texts missing", sampleConfig({{"PrinterName", ""}, {"ScreenId", ""}}), "", "||100|150|80|80|15|7|11|12|0|0"},
      {"key spelled Name", "[PrinterName]\nName=P\n" + sampleConfig({{"PrinterName", ""}}), "", "|SCREEN-001|100|150|80|80|15|7|11|12|0|0"},
      {"a name with a hash", sampleConfig({{"PrinterName", "Printer #2"}}), "", "|SCREEN-001|100|150|80|80|15|7|11|12|0|0"},
      {"a number with letters, then a sign alone", sampleConfig({{"FourWidth", "12px"}, {"Paperffder1", "-"}}),
       "invalid stoi argument", "EPSON L8160 Series|SCREEN-001|12|150|80|80|15|0|0|0|0|0"},
      {"an integer bad, a later one too wide", sampleConfig({{"FourHeight", "abc"}, {"environment", "99999999999"}}),
       "invalid stoi argument", "EPSON L8160 Series|SCREEN-001|100|0|0|0|0|0|0|0|0|0"},
      {"too wide before a missing one", sampleConfig({{"ThreeSize", "4294967296"}, {"environment", ""}}),
       "stoi argument out of range", "EPSON L8160 Series|SCREEN-001|100|150|80|80|15|7|11|0|0|0"},
      {"a comment hides a number", sampleConfig({{"ThreeHeight", "80 ; mm"}}), "invalid stoi argument",
       "EPSON L8160 Series|SCREEN-001|100|150|80|0|0|0|0|0|0|0"},
      {"environment missing", sampleConfig({{"environment", ""}}), "invalid stoi argument", all + "0|0"},
      {"the largest pictures that can be drawn", sampleConfig({{"FourWidth", "580400985"}, {"ThreeHeight", "-565127276"}}),
       "", "EPSON L8160 Series|SCREEN-001|580400985|150|80|-565127276|15|7|11|12|0|0"},
      {"a width that cannot be drawn", sampleConfig({{"FourWidth", "580400986"}}),
       "FourWidth 580400986 cannot be drawn: 3.7 times it leaves the 32-bit range", "EPSON L8160 Series|SCREEN-001|0|0|0|0|0|0|0|0|0|0"},
      {"a height that cannot be drawn", sampleConfig({{"ThreeHeight", "-565127277"}}),
       "ThreeHeight -565127277 cannot be drawn: 3.8 times it leaves the 32-bit range",
       "EPSON L8160 Series|SCREEN-001|100|150|80|0|0|0|0|0|0|0"},
      {"retention not a number, read last", sampleConfig({{"PictureRetentionDays", "a month"}}),
       "invalid stoi argument", all + "0|0"},
      {"all under one section", "[settings]\nname=P\nwidth=1\nvalue=3\n", "invalid stoi argument", "||0|0|0|0|0|0|0|0|0|0"},
      {"only CR line ends", "[PrinterName]\rname=P\r", "invalid stoi argument", "||0|0|0|0|0|0|0|0|0|0"},
      {"empty file", "", "invalid stoi argument", "||0|0|0|0|0|0|0|0|0|0"},
  };
  for (const auto& c : cases) {
    TempDir dir;
    PrinterConfig config(dir.write("config.ini", c.text));
    std::string error;
    try {
      config.load();
    } catch (const std::exception& e) {
      error = e.what();
    }
    EXPECT_EQ(error, c.error) << c.name;
    const auto& v = config.values();
    std::string values = v.PrinterName + "|" + v.ScreenId;
    for (const std::int32_t n : {v.FourWidth, v.FourHeight, v.ThreeWidth, v.ThreeHeight, v.Rearfeeder, v.Paperffder1,
                                 v.FourSize, v.ThreeSize, v.environment, v.PictureRetentionDays})
      values += "|" + std::to_string(n);
    EXPECT_EQ(values, c.values) << c.name;
    EXPECT_EQ(v.unused, 0);
  }
  PrinterConfig noPath("");
  EXPECT_EQ(noPath.load().FourWidth, 0);  // an empty path reads nothing
  PrinterConfig noFile("/nonexistent/config.ini");
  EXPECT_THROW(noFile.load(), std::invalid_argument);
}

}  // namespace
}  // namespace kps
