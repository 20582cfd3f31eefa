#include "config/IniFile.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iostream>
#include <sstream>

#include "tests/support/TempDir.h"

namespace kps {
namespace {

struct LoadCase {
  const char* name;
  std::string text;
  std::string section;
  std::string key;
  std::string expected;
};

class IniLoadTest : public ::testing::TestWithParam<LoadCase> {};

TEST_P(IniLoadTest, LooksUpAsLoaded) {
  const LoadCase& c = GetParam();
  TempDir dir;
  const std::string path = dir.write("config.ini", c.text);
  IniFile ini;
  ASSERT_TRUE(ini.load(path));
  EXPECT_EQ(ini.get(c.section, c.key), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Rules, IniLoadTest,
    ::testing::Values(
        LoadCase{"plain", "[S]\nk = v\n", "S", "k", "v"},
        LoadCase{"crlf_trimmed", "[S]\r\nk = v \r\n", "S", "k", "v"},
        LoadCase{"crlf_blank_line_keeps_value", "[S]\r\nk=v\r\n\r\n[T]\r\nx=1\r\n", "S", "k", "v"},
        LoadCase{"blank_line_of_spaces_blanks_previous_key", "[S]\nk=v\n   \n", "S", "k", ""},
        LoadCase{"semicolon_drops_line", "[S]\nk = v\nk = w ; note\n", "S", "k", "v"},
        LoadCase{"hash_drops_line", "[S]\nname = Printer #2\n", "S", "name", ""},
        LoadCase{"leading_blank_not_section", "[S]\nk=v\n  [T]\n", "S", "k", "[T]"},
        LoadCase{"missing_close_bracket", "[S\nk=v\n", "S", "k", "v"},
        LoadCase{"missing_close_bracket_crlf", "[S\r\nk=v\r\n", "S\r", "k", "v"},
        LoadCase{"second_open_bracket_is_assignment", "[S]\nk=v\n[[T]\n", "S", "k", "[[T]"},
        LoadCase{"further_equals_in_value", "[S]\na=b=c\n", "S", "a", "b=c"},
        LoadCase{"url_value", "[S]\nurl = x=1\n", "S", "url", "x=1"},
        LoadCase{"code1_cut_empty_key", std::string("[S]\nk = \x01v\n"), "S", "", "v"},
        LoadCase{"code1_cut_last_two", std::string("[S]\nk=a\x01 b \x01 c\n"), "S", "b", "c"},
        LoadCase{"no_equals_takes_previous_key", "[S]\nk=v\n  w  \n", "S", "k", "w"},
        LoadCase{"no_equals_before_any_key", "[S]\nlonely\n", "S", "", "lonely"},
        LoadCase{"assignment_before_section_dropped", "k=v\n[S]\n", "S", "k", ""},
        LoadCase{"empty_section_name_drops", "[]\nk=v\n", "", "k", ""},
        LoadCase{"last_match_wins", "[S]\nk=1\nk=2\n", "S", "k", "2"},
        LoadCase{"keys_case_sensitive", "[S]\nName=v\n", "S", "name", ""},
        LoadCase{"section_blanks_kept", "[ S ]\nk=v\n", "S", "k", ""},
        LoadCase{"section_blanks_kept_exact", "[ S ]\nk=v\n", " S ", "k", "v"},
        LoadCase{"empty_value", "[S]\nk =   \n", "S", "k", ""},
        LoadCase{"sections_merge", "[S]\nk=1\n[T]\nk=t\n[S]\nk=3\n", "S", "k", "3"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(IniFile, MissingFileYieldsNothing) {
  IniFile ini;
  EXPECT_FALSE(ini.load("/nonexistent/dir/config.ini"));
  EXPECT_TRUE(ini.sections().empty());
  EXPECT_EQ(ini.get("S", "k"), "");
}

TEST(IniFile, TwoFilesAddUp) {
  TempDir dir;
  IniFile ini;
  ini.load(dir.write("a.ini", "[S]\nk=1\n[A]\nx=a\n"));
  ini.load(dir.write("b.ini", "[S]\nk=2\n[B]\ny=b\n"));
  EXPECT_EQ(ini.sections(), (std::vector<std::string>{"S", "A", "B"}));
  EXPECT_EQ(ini.entries().size(), 4u);
  EXPECT_EQ(ini.get("S", "k"), "2");
  EXPECT_EQ(ini.get("A", "x"), "a");
}

TEST(IniFile, EditingOperations) {
  IniFile ini;
  EXPECT_TRUE(ini.addSection("S"));
  EXPECT_FALSE(ini.addSection("S"));
  EXPECT_FALSE(ini.setValue("missing", "k", "v"));
  EXPECT_TRUE(ini.setValue(" S ", "k", "1"));  // matched after trimming, stored as listed
  EXPECT_TRUE(ini.setValue("S", "k", "2"));    // appends, never replaces
  EXPECT_EQ(ini.entries().size(), 2u);
  EXPECT_EQ(ini.entries()[0].section, "S");
  EXPECT_TRUE(ini.removeKey("S", "k"));
  EXPECT_EQ(ini.get("S", "k"), "2");
  EXPECT_TRUE(ini.removeKey("S", "k"));
  EXPECT_FALSE(ini.removeKey("S", "k"));
  ini.setValue("S", "a", "b");
  ini.removeSection("S");
  EXPECT_TRUE(ini.sections().empty());
  EXPECT_TRUE(ini.entries().empty());
}

TEST(IniFile, SaveAndDumpRoundTrip) {
  TempDir dir;
  IniFile ini;
  ini.load(dir.write("in.ini", "[PrinterName]\nname = EPSON L8160\n[FourWidth]\nwidth=100\n"));
  const std::string expected = "[PrinterName]\nname = EPSON L8160\n\n[FourWidth]\nwidth = 100\n\n";

  const std::string out = dir.path() + "/out.ini";
  ASSERT_TRUE(ini.save(out));
  EXPECT_EQ(dir.read("out.ini"), expected);
  IniFile again;
  again.load(out);
  EXPECT_EQ(again.get("FourWidth", "width"), "100");
  EXPECT_EQ(again.get("PrinterName", "name"), "EPSON L8160");

  testing::internal::CaptureStdout();
  ini.dump();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), expected);

  EXPECT_FALSE(ini.save(dir.path() + "/no/such/dir/out.ini"));
}

TEST(IniFile, SaveSkipsEntriesOfRemovedSections) {
  TempDir dir;
  IniFile ini;
  ini.addSection("A");
  ini.addSection("B");
  ini.setValue("A", "k", "1");
  ini.setValue("B", "k", "2");
  ini.removeSection("A");
  ASSERT_TRUE(ini.save(dir.path() + "/o.ini"));
  EXPECT_EQ(dir.read("o.ini"), "[B]\nk = 2\n\n");
}

}  // namespace
}  // namespace kps
