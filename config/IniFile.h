// An INI-style file held in memory: sections in first-seen order and every assignment in the
// order read. The parsing rules are deliberately simple; see IniFile.cpp.
#pragma once

#include <string>
#include <vector>

namespace kps {

class IniFile {
 public:
  struct Entry {
    std::string key;
    std::string value;
    std::string section;
  };

  bool load(std::string path);
  std::string get(std::string section, std::string key) const;

  bool addSection(const std::string& name);
  bool setValue(const std::string& section, const std::string& key, const std::string& value);
  bool removeKey(const std::string& section, const std::string& key);
  void removeSection(const std::string& section);
  bool save(const std::string& path) const;
  void dump() const;

  const std::vector<std::string>& sections() const { return sections_; }
  const std::vector<Entry>& entries() const { return entries_; }

  std::string trim(const std::string& text) const;

 private:
  void loadLine(const std::string& line, std::string& section, std::string& key);
  std::string render() const;

  const std::string whitespace_ = " \n\r\t\f\v";
  std::vector<std::string> sections_;
  std::vector<Entry> entries_;
};

}  // namespace kps
