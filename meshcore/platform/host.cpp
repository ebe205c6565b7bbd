#include "meshcore/platform/host.h"

#include "meshcore/platform/user_paths.h"

#include <atomic>
#include <charconv>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <mutex>
#include <sstream>

namespace meshcore {

namespace {

// section -> key -> value; std::map keeps the written file in a fixed order.
using Profile = std::map<std::string, std::map<std::string, std::string>>;

std::mutex& ProfileMutex() {
  static std::mutex m;
  return m;
}

std::string ProfilePath() {
  return GetUserPreferencesPath() + "profile.ini";
}

// Values are kept on one line: backslash, CR and LF are escaped.
std::string Escape(const std::string& s) {
  std::string out;
  for (char c : s) {
    if (c == '\\')
      out += "\\\\";
    else if (c == '\n')
      out += "\\n";
    else if (c == '\r')
      out += "\\r";
    else
      out += c;
  }
  return out;
}

std::string Unescape(const std::string& s) {
  std::string out;
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '\\' && i + 1 < s.size()) {
      const char n = s[++i];
      out += n == 'n' ? '\n' : n == 'r' ? '\r' : n;
    } else {
      out += s[i];
    }
  }
  return out;
}

std::string Trim(const std::string& s) {
  const auto b = s.find_first_not_of(" \t\r");
  if (b == std::string::npos)
    return {};
  const auto e = s.find_last_not_of(" \t\r");
  return s.substr(b, e - b + 1);
}

Profile LoadProfile() {
  Profile profile;
  std::ifstream in(ProfilePath(), std::ios::binary);
  std::string line, section;
  while (std::getline(in, line)) {
    const std::string t = Trim(line);
    if (t.empty() || t[0] == ';' || t[0] == '#')
      continue;
    if (t.front() == '[' && t.back() == ']') {
      section = t.substr(1, t.size() - 2);
      continue;
    }
    const auto eq = line.find('=');
    if (eq == std::string::npos)
      continue;
    std::string value = line.substr(eq + 1);
    if (!value.empty() && value.back() == '\r')
      value.pop_back();
    profile[section][Trim(line.substr(0, eq))] = Unescape(value);
  }
  return profile;
}

bool SaveProfile(const Profile& profile) {
  if (!EnsureUserPreferencesPath())
    return false;
  std::ostringstream out;
  for (const auto& [section, keys] : profile) {
    out << '[' << section << "]\n";
    for (const auto& [key, value] : keys)
      out << key << '=' << Escape(value) << '\n';
    out << '\n';
  }
  const std::string text = out.str();
  // Through a temporary file so that a failed write never loses the settings.
  const std::string path = ProfilePath();
  const std::string temp = path + ".tmp";
  std::FILE* fp = std::fopen(temp.c_str(), "wb");
  if (!fp)
    return false;
  const bool written = std::fwrite(text.data(), 1, text.size(), fp) == text.size();
  const bool closed = std::fclose(fp) == 0;
  if (!written || !closed || std::rename(temp.c_str(), path.c_str()) != 0) {
    std::remove(temp.c_str());
    return false;
  }
  return true;
}

bool WriteValue(const std::string& section, const std::string& key, const std::string& value) {
  // A key with '=' or a line break could not be read back.
  if (key.find_first_of("=\r\n") != std::string::npos || Trim(key) != key || key.empty() ||
      section.find_first_of("]\r\n") != std::string::npos)
    return false;
  std::lock_guard<std::mutex> lock(ProfileMutex());
  Profile profile = LoadProfile();
  profile[section][key] = value;
  return SaveProfile(profile);
}

bool ReadValue(const std::string& section, const std::string& key, std::string& value) {
  std::lock_guard<std::mutex> lock(ProfileMutex());
  const Profile profile = LoadProfile();
  auto s = profile.find(section);
  if (s == profile.end())
    return false;
  auto k = s->second.find(key);
  if (k == s->second.end())
    return false;
  value = k->second;
  return true;
}

CMeshcoreHost& DefaultHost() {
  static CMeshcoreHost host;
  return host;
}

std::atomic<CMeshcoreHost*>& InstalledHost() {
  static std::atomic<CMeshcoreHost*> host{nullptr};
  return host;
}

} // namespace

HostWindow CMeshcoreHost::GetMainWindow() {
  return nullptr;
}

int CMeshcoreHost::MessageBox(HostWindow, const std::string& text, const std::string& title,
                              unsigned) {
  std::cerr << title << ": " << text << std::endl;
  return answerOk;
}

void CMeshcoreHost::BeginWaitCursor(HostWindow) {}
void CMeshcoreHost::EndWaitCursor(HostWindow) {}

bool CMeshcoreHost::OpenFileDialog(HostWindow, std::string&, const std::string&) {
  return false;
}
bool CMeshcoreHost::SaveFileDialog(HostWindow, std::string&, const std::string&) {
  return false;
}

int CMeshcoreHost::GetProfileInt(const std::string& section, const std::string& key,
                                 int defaultValue) {
  std::string text;
  if (!ReadValue(section, key, text))
    return defaultValue;
  const std::string t = Trim(text);
  int value = 0;
  const char* first = t.data();
  if (!t.empty() && t[0] == '+')
    ++first;
  auto [ptr, ec] = std::from_chars(first, t.data() + t.size(), value);
  return ec == std::errc() && ptr != first ? value : defaultValue;
}

bool CMeshcoreHost::WriteProfileInt(const std::string& section, const std::string& key, int value) {
  return WriteValue(section, key, std::to_string(value));
}

std::string CMeshcoreHost::GetProfileString(const std::string& section, const std::string& key,
                                            const std::string& defaultValue) {
  std::string value;
  return ReadValue(section, key, value) ? value : defaultValue;
}

bool CMeshcoreHost::WriteProfileString(const std::string& section, const std::string& key,
                                       const std::string& value) {
  return WriteValue(section, key, value);
}

std::string CMeshcoreHost::GetApplicationName() {
  return "meshcore";
}

void SetMeshcoreHost(CMeshcoreHost* host) {
  InstalledHost().store(host);
}

CMeshcoreHost& GetMeshcoreHost() {
  CMeshcoreHost* host = InstalledHost().load();
  return host ? *host : DefaultHost();
}

} // namespace meshcore
