#include "meshcore/formats/lightwave/detail/lwo_object.h"

namespace meshcore {

std::string LwIdToString(std::uint32_t id) {
  std::string s(4, ' ');
  for (int i = 0; i < 4; ++i)
    s[i] = char((id >> (24 - 8 * i)) & 0xFF);
  return s;
}

const _lwChannelInfo* st_lwSurface::FindChannel(std::uint32_t channel) const {
  for (const auto& c : channels)
    if (c.channel == channel)
      return &c;
  return nullptr;
}

_lwChannelInfo& st_lwSurface::GetChannel(std::uint32_t channel) {
  for (auto& c : channels)
    if (c.channel == channel)
      return c;
  channels.push_back({channel, {}});
  return channels.back();
}

const st_lwClip* st_lwObject::FindClip(std::uint32_t index) const {
  for (const auto& c : clips)
    if (c.index == index)
      return &c;
  return nullptr;
}

int st_lwObject::FindSurface(std::string_view name) const {
  for (std::size_t i = 0; i < surfaces.size(); ++i)
    if (surfaces[i].name == name)
      return int(i);
  return -1;
}

std::string LwClipNameToLocal(std::string_view fileName) {
  std::string s(fileName);
  for (auto& c : s)
    if (c == '/')
      c = '\\';
  auto colon = s.find(':');
  if (colon == std::string::npos)
    return ".\\" + s;
  // "Drive:dir" gains the separator the local form needs; "C:/dir" already has one.
  if (colon + 1 >= s.size() || s[colon + 1] != '\\')
    s.insert(colon + 1, 1, '\\');
  return s;
}

std::string LwLocalNameToClip(std::string_view localName) {
  // Either separator may appear: the local form may already be the platform's.
  auto isSep = [](char c) { return c == '\\' || c == '/'; };
  std::string s(localName);
  bool rooted = s.find(':') != std::string::npos || (!s.empty() && isSep(s[0]));
  if (!rooted) {
    if (s.size() >= 2 && s[0] == '.' && isSep(s[1]))
      s.erase(0, 2);
  } else {
    auto colon = s.find(':');
    if (colon != std::string::npos && colon + 1 < s.size() && isSep(s[colon + 1]))
      s.erase(colon + 1, 1);
  }
  for (auto& c : s)
    if (c == '\\')
      c = '/';
  return s;
}

} // namespace meshcore
