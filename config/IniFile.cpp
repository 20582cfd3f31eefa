#include "config/IniFile.h"

#include <algorithm>
#include <cstdio>
#include <fstream>

namespace kps {

std::string IniFile::trim(const std::string& text) const {
  const auto first = text.find_first_not_of(whitespace_);
  if (first == std::string::npos) return "";
  const auto last = text.find_last_not_of(whitespace_);
  return text.substr(first, last - first + 1);
}

bool IniFile::load(std::string path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return false;
  std::string line, section, key;
  while (std::getline(file, line)) loadLine(line, section, key);
  return true;
}

void IniFile::loadLine(const std::string& line, std::string& section, std::string& key) {
  // A line holding only the CR of a CR LF pair is as empty as a bare LF line; left in, it
  // would be an assignment that blanks the previous key of a Windows-edited file.
  if (line.empty() || line == "\r") return;
  // No end-of-line comments: a comment character anywhere drops the whole line.
  if (line.find(';') != std::string::npos || line.find('#') != std::string::npos) return;

  if (line.rfind('[') == 0) {
    const auto close = line.find(']');
    section = line.substr(1, close == std::string::npos ? std::string::npos : close - 1);
    addSection(section);
    return;
  }

  std::string value;
  const auto equals = line.find('=');
  if (equals == std::string::npos) {
    value = trim(line);
  } else {
    // After the first '=', a code-1 character cuts again; the last two pieces are kept.
    std::vector<std::string> pieces{line.substr(0, equals)};
    std::size_t start = equals + 1;
    for (auto cut = line.find('\x01', start); cut != std::string::npos;
         cut = line.find('\x01', start)) {
      pieces.push_back(line.substr(start, cut - start));
      start = cut + 1;
    }
    pieces.push_back(line.substr(start));
    key = trim(pieces[pieces.size() - 2]);
    value = trim(pieces.back());
  }
  if (section.empty()) return;
  setValue(section, key, value);
}

std::string IniFile::get(std::string section, std::string key) const {
  std::string value;
  for (const auto& entry : entries_)
    if (entry.section == section && entry.key == key) value = entry.value;
  return value;
}

bool IniFile::addSection(const std::string& name) {
  if (std::find(sections_.begin(), sections_.end(), name) != sections_.end()) return false;
  sections_.push_back(name);
  return true;
}

bool IniFile::setValue(const std::string& section, const std::string& key,
                       const std::string& value) {
  const std::string wanted = trim(section);
  const auto found = std::find_if(sections_.begin(), sections_.end(),
                                  [&](const std::string& name) { return trim(name) == wanted; });
  if (found == sections_.end()) return false;
  entries_.push_back(Entry{key, value, *found});
  return true;
}

bool IniFile::removeKey(const std::string& section, const std::string& key) {
  const auto found = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) {
    return entry.section == section && entry.key == key;
  });
  if (found == entries_.end()) return false;
  entries_.erase(found);
  return true;
}

void IniFile::removeSection(const std::string& section) {
  sections_.erase(std::remove(sections_.begin(), sections_.end(), section), sections_.end());
  entries_.erase(std::remove_if(entries_.begin(), entries_.end(),
                                [&](const Entry& entry) { return entry.section == section; }),
                 entries_.end());
}

std::string IniFile::render() const {
  std::string text;
  for (const auto& section : sections_) {
    text += "[" + section + "]\n";
    for (const auto& entry : entries_)
      if (entry.section == section) text += entry.key + " = " + entry.value + "\n";
    text += "\n";
  }
  return text;
}

bool IniFile::save(const std::string& path) const {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  if (!file) return false;
  file << render();
  return true;
}

void IniFile::dump() const {
  std::fputs(render().c_str(), stdout);
  std::fflush(stdout);
}

}  // namespace kps
