#include "qo/sys/CShellLink.h"

#include "qo/core/CIOError.h"
#include "qo/core/CNotImplementedError.h"
#include "qo/core/CParseError.h"
#include "qo/core/CSystemError.h"
#include "qo/core/TFlags.h"
#include "qo/fs/CLocalFileStream.h"
#include "qo/platform/ShellLink.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

namespace qo {

namespace {

constexpr unsigned kHeaderSize = 0x4C;
// CLSID 00021401-0000-0000-C000-000000000046 as stored.
constexpr unsigned char kLinkCLSID[16] = {0x01, 0x14, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00,
                                          0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46};
constexpr unsigned kContentFlags = CShellLink::kHasLinkTargetIDList | CShellLink::kHasLinkInfo |
                                   CShellLink::kHasName | CShellLink::kHasRelativePath | CShellLink::kHasWorkingDir |
                                   CShellLink::kHasArguments | CShellLink::kHasIconLocation |
                                   CShellLink::kIsUnicode | CShellLink::kHasExpString;
// LinkInfo flags.
constexpr unsigned kVolumeIDAndLocalBasePath = 1;
constexpr unsigned kCommonNetworkRelativeLinkAndPathSuffix = 2;
// CommonNetworkRelativeLink flags.
constexpr unsigned kValidDevice = 1;
constexpr unsigned kValidNetType = 2;
// The environment-variable block: 8 bytes of head, 260 ANSI bytes, 260
// UTF-16 units.
constexpr unsigned kEnvironmentSignature = 0xA0000001u;
constexpr unsigned kEnvironmentBlockSize = 0x314;
constexpr std::size_t kEnvironmentChars = 260;

[[noreturn]] void fail(char16_t const* what, std::size_t offset) {
  throw CParseError(String(u"Malformed shell link: ") + what,
                    CProps().addLong(u"offset", static_cast<long long>(offset)));
}

// Bounds-checked little-endian reads over the link's bytes.
class Reader {
public:
  Reader(unsigned char const* data, std::size_t size) : m_data(data), m_size(size) {}
  std::size_t size() const { return m_size; }
  void need(std::size_t at, std::size_t count) const {
    if (at > m_size || count > m_size - at) fail(u"the data ends early.", at);
  }
  unsigned u16(std::size_t at) const {
    need(at, 2);
    return m_data[at] | (m_data[at + 1] << 8);
  }
  unsigned u32(std::size_t at) const {
    need(at, 4);
    return static_cast<unsigned>(m_data[at]) | (static_cast<unsigned>(m_data[at + 1]) << 8) |
           (static_cast<unsigned>(m_data[at + 2]) << 16) | (static_cast<unsigned>(m_data[at + 3]) << 24);
  }
  long long u64(std::size_t at) const {
    return static_cast<long long>(u32(at) | (static_cast<unsigned long long>(u32(at + 4)) << 32));
  }
  unsigned char const* at(std::size_t at) const { return m_data + at; }
  // A NUL-terminated byte text at at that must end before end.
  std::string ansiz(std::size_t at, std::size_t end) const {
    need(at, 0);
    end = std::min(end, m_size);
    for (std::size_t i = at; i < end; ++i) {
      if (m_data[i] == 0) return std::string(reinterpret_cast<char const*>(m_data + at), i - at);
    }
    fail(u"a text has no end.", at);
  }
  // A NUL-terminated UTF-16 text at at that must end before end.
  String unicodez(std::size_t at, std::size_t end) const {
    need(at, 0);
    end = std::min(end, m_size);
    std::u16string text;
    for (std::size_t i = at; i + 1 < end; i += 2) {
      char16_t c = static_cast<char16_t>(m_data[i] | (m_data[i + 1] << 8));
      if (c == 0) return String(std::move(text));
      text += c;
    }
    fail(u"a text has no end.", at);
  }

private:
  unsigned char const* m_data;
  std::size_t m_size;
};

String decodeAnsi(std::string const& bytes, unsigned codePage) {
  bool ascii = std::all_of(bytes.begin(), bytes.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
  if (ascii) return String::fromLatin1(bytes);
  try {
    return String::fromCP(bytes, codePage);
  } catch (CError const&) {
    return String::fromLatin1(bytes);
  }
}

bool isAscii(String const& s) {
  return std::all_of(s.str().begin(), s.str().end(), [](char16_t c) { return c < 0x80 && c != 0; });
}

// The ANSI form of s: characters the code page lacks become '?'.
std::string encodeAnsi(String const& s, unsigned codePage) {
  std::string out;
  for (char16_t c : s.str()) {
    if (c == 0) break;
    if (c < 0x80) {
      out += static_cast<char>(c);
      continue;
    }
    try {
      out += String(std::u16string(1, c)).toCP(codePage);
    } catch (CError const&) {
      out += '?';
    }
  }
  return out;
}

class Writer {
public:
  CShellLink::Bytes bytes;
  std::size_t size() const { return bytes.size(); }
  void u16(unsigned v) {
    bytes.push_back(static_cast<unsigned char>(v));
    bytes.push_back(static_cast<unsigned char>(v >> 8));
  }
  void u32(unsigned v) {
    u16(v & 0xFFFF);
    u16(v >> 16);
  }
  void u64(long long v) {
    u32(static_cast<unsigned>(static_cast<unsigned long long>(v) & 0xFFFFFFFFu));
    u32(static_cast<unsigned>(static_cast<unsigned long long>(v) >> 32));
  }
  void put(void const* data, std::size_t n) {
    auto const* p = static_cast<unsigned char const*>(data);
    bytes.insert(bytes.end(), p, p + n);
  }
  void ansiz(std::string const& s) { put(s.c_str(), s.size() + 1); }
  void unicode(std::u16string const& s) {
    for (char16_t c : s) u16(c);
  }
  void unicodez(String const& s) {
    for (char16_t c : s.str()) {
      if (c == 0) break;
      u16(c);
    }
    u16(0);
  }
  void patch32(std::size_t at, unsigned v) {
    for (int i = 0; i < 4; ++i) bytes[at + static_cast<std::size_t>(i)] = static_cast<unsigned char>(v >> (8 * i));
  }
};

long long fileTimeOf(CTime t) { return t.isValid() ? t.getWindowsFileTimeUTC() : 0; }
CTime timeOf(long long fileTime) { return fileTime == 0 ? CTime::invalid() : CTime::fromFileTime(fileTime); }

}  // namespace

CShellLink::CShellLink() = default;
CShellLink::~CShellLink() = default;

CTime CShellLink::getCreationTime() const { return timeOf(m_creationFileTime); }
CTime CShellLink::getAccessTime() const { return timeOf(m_accessFileTime); }
CTime CShellLink::getWriteTime() const { return timeOf(m_writeFileTime); }

void CShellLink::setTimes(CTime creation, CTime access, CTime write) {
  m_creationFileTime = fileTimeOf(creation);
  m_accessFileTime = fileTimeOf(access);
  m_writeFileTime = fileTimeOf(write);
}

void CShellLink::setVolume(unsigned driveType, unsigned serialNumber, String const& label) {
  m_driveType = driveType;
  m_driveSerial = serialNumber;
  m_volumeLabel = label;
}

void CShellLink::setNetwork(String const& netName, String const& deviceName, unsigned providerType) {
  m_netName = netName;
  m_deviceName = deviceName;
  m_networkProviderType = providerType;
}

String CShellLink::getTargetPath() const {
  if (!m_localBasePath.isEmpty()) return m_localBasePath + m_commonPathSuffix;
  if (!m_netName.isEmpty()) {
    if (m_commonPathSuffix.isEmpty()) return m_netName;
    return m_netName + u"\\" + m_commonPathSuffix;
  }
  if (!m_environmentTarget.isEmpty()) return m_environmentTarget;
  return m_relativePath;
}

P<CShellLink> CShellLink::parse(void const* data, std::size_t size, unsigned codePage) {
  Reader r(static_cast<unsigned char const*>(data), size);
  if (r.u32(0) != kHeaderSize) fail(u"the header size is not 76.", 0);
  r.need(4, 16);
  if (std::memcmp(r.at(4), kLinkCLSID, 16) != 0) fail(u"the class id is not the shell link's.", 4);
  P<CShellLink> link = newP<CShellLink>();
  link->m_codePage = codePage;
  unsigned const flags = r.u32(20);
  link->m_flags = flags;
  link->m_fileAttributes = r.u32(24);
  link->m_creationFileTime = r.u64(28);
  link->m_accessFileTime = r.u64(36);
  link->m_writeFileTime = r.u64(44);
  link->m_fileSize = r.u32(52);
  link->m_iconIndex = static_cast<int>(r.u32(56));
  link->m_showCommand = r.u32(60);
  link->m_hotKey = static_cast<unsigned short>(r.u16(64));
  r.need(0, kHeaderSize);
  std::size_t pos = kHeaderSize;

  if (flags & kHasLinkTargetIDList) {
    std::size_t const listSize = r.u16(pos);
    std::size_t const end = pos + 2 + listSize;
    r.need(pos + 2, listSize);
    std::size_t item = pos + 2;
    for (;;) {
      if (item + 2 > end) fail(u"the item-ID list has no terminator.", item);
      std::size_t const itemSize = r.u16(item);
      if (itemSize == 0) break;
      if (itemSize < 2 || itemSize > end - item) fail(u"an item ID has a bad size.", item);
      link->m_idList.emplace_back(r.at(item + 2), r.at(item + itemSize));
      item += itemSize;
    }
    pos = end;
  }

  if (flags & kHasLinkInfo) {
    std::size_t const base = pos;
    std::size_t const infoSize = r.u32(base);
    unsigned const headerSize = r.u32(base + 4);
    if (infoSize < 0x1C || headerSize < 0x1C || headerSize > infoSize) fail(u"the link information has bad sizes.", base);
    r.need(base, infoSize);
    std::size_t const end = base + infoSize;
    unsigned const infoFlags = r.u32(base + 8);
    auto offset = [&](std::size_t field) -> std::size_t {
      std::size_t const o = r.u32(base + field);
      if (o >= infoSize) fail(u"an offset leaves the link information.", base + field);
      return base + o;
    };
    if (infoFlags & kVolumeIDAndLocalBasePath) {
      std::size_t const volume = offset(0x0C);
      std::size_t const volumeSize = r.u32(volume);
      if (volumeSize < 0x10 || volumeSize > end - volume) fail(u"the volume id has a bad size.", volume);
      std::size_t const volumeEnd = volume + volumeSize;
      link->m_driveType = r.u32(volume + 4);
      link->m_driveSerial = r.u32(volume + 8);
      std::size_t const labelOffset = r.u32(volume + 12);
      if (labelOffset == 0x14) {
        std::size_t const unicodeOffset = r.u32(volume + 16);
        if (unicodeOffset >= volumeSize) fail(u"the volume label leaves the volume id.", volume + 16);
        link->m_volumeLabel = r.unicodez(volume + unicodeOffset, volumeEnd);
      } else {
        if (labelOffset >= volumeSize) fail(u"the volume label leaves the volume id.", volume + 12);
        link->m_volumeLabel = decodeAnsi(r.ansiz(volume + labelOffset, volumeEnd), codePage);
      }
      link->m_localBasePath = decodeAnsi(r.ansiz(offset(0x10), end), codePage);
      if (headerSize >= 0x24 && r.u32(base + 0x1C) != 0) link->m_localBasePath = r.unicodez(offset(0x1C), end);
    }
    if (infoFlags & kCommonNetworkRelativeLinkAndPathSuffix) {
      std::size_t const net = offset(0x14);
      std::size_t const netSize = r.u32(net);
      if (netSize < 0x14 || netSize > end - net) fail(u"the network link has a bad size.", net);
      std::size_t const netEnd = net + netSize;
      unsigned const netFlags = r.u32(net + 4);
      std::size_t const nameOffset = r.u32(net + 8);
      std::size_t const deviceOffset = r.u32(net + 12);
      link->m_networkProviderType = (netFlags & kValidNetType) ? r.u32(net + 16) : 0;
      if (nameOffset >= netSize) fail(u"the share name leaves the network link.", net + 8);
      link->m_netName = decodeAnsi(r.ansiz(net + nameOffset, netEnd), codePage);
      if ((netFlags & kValidDevice) && deviceOffset != 0) {
        if (deviceOffset >= netSize) fail(u"the device name leaves the network link.", net + 12);
        link->m_deviceName = decodeAnsi(r.ansiz(net + deviceOffset, netEnd), codePage);
      }
      if (nameOffset > 0x14) {
        std::size_t const nameUnicode = r.u32(net + 0x14);
        std::size_t const deviceUnicode = r.u32(net + 0x18);
        if (nameUnicode != 0) {
          if (nameUnicode >= netSize) fail(u"the share name leaves the network link.", net + 0x14);
          link->m_netName = r.unicodez(net + nameUnicode, netEnd);
        }
        if ((netFlags & kValidDevice) && deviceUnicode != 0) {
          if (deviceUnicode >= netSize) fail(u"the device name leaves the network link.", net + 0x18);
          link->m_deviceName = r.unicodez(net + deviceUnicode, netEnd);
        }
      }
    }
    if (infoFlags & (kVolumeIDAndLocalBasePath | kCommonNetworkRelativeLinkAndPathSuffix)) {
      if (r.u32(base + 0x18) != 0) link->m_commonPathSuffix = decodeAnsi(r.ansiz(offset(0x18), end), codePage);
      if (headerSize >= 0x24 && r.u32(base + 0x20) != 0) link->m_commonPathSuffix = r.unicodez(offset(0x20), end);
    }
    pos = end;
  }

  bool const unicode = (flags & kIsUnicode) != 0;
  auto readString = [&](String& out) {
    std::size_t const count = r.u16(pos);
    pos += 2;
    std::size_t const bytes = unicode ? count * 2 : count;
    r.need(pos, bytes);
    if (unicode) {
      std::u16string text(count, u'\0');
      for (std::size_t i = 0; i < count; ++i) text[i] = static_cast<char16_t>(r.u16(pos + 2 * i));
      out = String(std::move(text));
    } else {
      out = decodeAnsi(std::string(reinterpret_cast<char const*>(r.at(pos)), count), codePage);
    }
    pos += bytes;
    // The texts carry no terminator; some writers (Wine's shell) count one
    // all the same.
    while (!out.isEmpty() && out.str().back() == u'\0') out.str().pop_back();
  };
  if (flags & kHasName) readString(link->m_name);
  if (flags & kHasRelativePath) readString(link->m_relativePath);
  if (flags & kHasWorkingDir) readString(link->m_workingDir);
  if (flags & kHasArguments) readString(link->m_arguments);
  if (flags & kHasIconLocation) readString(link->m_iconLocation);

  // Extra data up to the terminal block (a size below 4); links cut off
  // before it are accepted.
  while (pos + 4 <= size) {
    std::size_t const blockSize = r.u32(pos);
    if (blockSize < 4) break;
    if (blockSize < 8 || blockSize > size - pos) fail(u"an extra data block has a bad size.", pos);
    unsigned const signature = r.u32(pos + 4);
    if (signature == kEnvironmentSignature && blockSize == kEnvironmentBlockSize) {
      std::size_t const ansi = pos + 8;
      std::size_t const wide = ansi + kEnvironmentChars;
      String target = r.unicodez(wide, wide + 2 * kEnvironmentChars);
      if (target.isEmpty()) target = decodeAnsi(r.ansiz(ansi, ansi + kEnvironmentChars), codePage);
      link->m_environmentTarget = target;
    } else {
      link->m_extraBlocks.emplace_back(r.at(pos), r.at(pos + blockSize));
    }
    pos += blockSize;
  }
  return link;
}

CShellLink::Bytes CShellLink::serialize() const {
  Writer w;
  bool const hasLocal = !m_localBasePath.isEmpty();
  bool const hasNet = !m_netName.isEmpty();
  unsigned flags = (m_flags & ~kContentFlags) | kIsUnicode;
  if (!m_idList.empty()) flags |= kHasLinkTargetIDList;
  if (hasLocal || hasNet) flags |= kHasLinkInfo;
  if (!m_name.isEmpty()) flags |= kHasName;
  if (!m_relativePath.isEmpty()) flags |= kHasRelativePath;
  if (!m_workingDir.isEmpty()) flags |= kHasWorkingDir;
  if (!m_arguments.isEmpty()) flags |= kHasArguments;
  if (!m_iconLocation.isEmpty()) flags |= kHasIconLocation;
  if (!m_environmentTarget.isEmpty()) flags |= kHasExpString;

  w.u32(kHeaderSize);
  w.put(kLinkCLSID, sizeof kLinkCLSID);
  w.u32(flags);
  w.u32(m_fileAttributes);
  w.u64(m_creationFileTime);
  w.u64(m_accessFileTime);
  w.u64(m_writeFileTime);
  w.u32(m_fileSize);
  w.u32(static_cast<unsigned>(m_iconIndex));
  w.u32(m_showCommand);
  w.u16(m_hotKey);
  w.u16(0);
  w.u32(0);
  w.u32(0);

  if (flags & kHasLinkTargetIDList) {
    std::size_t const sizeAt = w.size();
    w.u16(0);
    for (Bytes const& item : m_idList) {
      w.u16(static_cast<unsigned>(item.size() + 2));
      w.put(item.data(), item.size());
    }
    w.u16(0);
    std::size_t const listSize = w.size() - sizeAt - 2;
    w.bytes[sizeAt] = static_cast<unsigned char>(listSize);
    w.bytes[sizeAt + 1] = static_cast<unsigned char>(listSize >> 8);
  }

  if (flags & kHasLinkInfo) {
    // Unicode forms only where the ANSI one would lose characters, as the
    // shell does.
    bool const unicodePaths = (hasLocal && !isAscii(m_localBasePath)) || !isAscii(m_commonPathSuffix);
    unsigned const headerSize = unicodePaths ? 0x24 : 0x1C;
    std::size_t const base = w.size();
    w.bytes.resize(base + headerSize, 0);
    w.patch32(base + 4, headerSize);
    w.patch32(base + 8, (hasLocal ? kVolumeIDAndLocalBasePath : 0) |
                            (hasNet ? kCommonNetworkRelativeLinkAndPathSuffix : 0));
    auto here = [&] { return static_cast<unsigned>(w.size() - base); };
    if (hasLocal) {
      w.patch32(base + 0x0C, here());
      std::size_t const volume = w.size();
      bool const unicodeLabel = !isAscii(m_volumeLabel) && !m_volumeLabel.isEmpty();
      w.u32(0);
      w.u32(m_driveType);
      w.u32(m_driveSerial);
      if (unicodeLabel) {
        w.u32(0x14);  // the ANSI offset 0x14 says: the Unicode offset follows
        w.u32(0x14);
        w.unicodez(m_volumeLabel);
      } else {
        w.u32(0x10);
        w.ansiz(encodeAnsi(m_volumeLabel, m_codePage));
      }
      w.patch32(volume, static_cast<unsigned>(w.size() - volume));
      w.patch32(base + 0x10, here());
      w.ansiz(encodeAnsi(m_localBasePath, m_codePage));
    }
    if (hasNet) {
      w.patch32(base + 0x14, here());
      std::size_t const net = w.size();
      bool const unicodeNames = !isAscii(m_netName) || (!m_deviceName.isEmpty() && !isAscii(m_deviceName));
      unsigned const netHeader = unicodeNames ? 0x1C : 0x14;
      w.bytes.resize(net + netHeader, 0);
      unsigned netFlags = (m_deviceName.isEmpty() ? 0 : kValidDevice) | (m_networkProviderType ? kValidNetType : 0);
      w.patch32(net + 4, netFlags);
      w.patch32(net + 8, static_cast<unsigned>(w.size() - net));
      w.ansiz(encodeAnsi(m_netName, m_codePage));
      if (!m_deviceName.isEmpty()) {
        w.patch32(net + 12, static_cast<unsigned>(w.size() - net));
        w.ansiz(encodeAnsi(m_deviceName, m_codePage));
      }
      w.patch32(net + 16, m_networkProviderType);
      if (unicodeNames) {
        w.patch32(net + 0x14, static_cast<unsigned>(w.size() - net));
        w.unicodez(m_netName);
        if (!m_deviceName.isEmpty()) {
          w.patch32(net + 0x18, static_cast<unsigned>(w.size() - net));
          w.unicodez(m_deviceName);
        }
      }
      w.patch32(net, static_cast<unsigned>(w.size() - net));
    }
    w.patch32(base + 0x18, here());
    w.ansiz(encodeAnsi(m_commonPathSuffix, m_codePage));
    if (unicodePaths) {
      if (hasLocal) {
        w.patch32(base + 0x1C, here());
        w.unicodez(m_localBasePath);
      }
      w.patch32(base + 0x20, here());
      w.unicodez(m_commonPathSuffix);
    }
    w.patch32(base, here());
  }

  for (String const* s : {&m_name, &m_relativePath, &m_workingDir, &m_arguments, &m_iconLocation}) {
    if (s->isEmpty()) continue;
    std::u16string text = s->str().substr(0, 0xFFFF);
    w.u16(static_cast<unsigned>(text.size()));
    w.unicode(text);
  }

  if (flags & kHasExpString) {
    std::size_t const block = w.size();
    w.u32(kEnvironmentBlockSize);
    w.u32(kEnvironmentSignature);
    std::string ansi = encodeAnsi(m_environmentTarget, m_codePage).substr(0, kEnvironmentChars - 1);
    std::u16string wide = m_environmentTarget.str().substr(0, kEnvironmentChars - 1);
    wide = wide.substr(0, wide.find(u'\0'));
    w.put(ansi.data(), ansi.size());
    w.bytes.resize(block + 8 + kEnvironmentChars, 0);
    w.unicode(wide);
    w.bytes.resize(block + kEnvironmentBlockSize, 0);
  }
  for (Bytes const& b : m_extraBlocks) w.put(b.data(), b.size());
  w.u32(0);
  return w.bytes;
}

P<CShellLink> CShellLink::load(String const& path, unsigned codePage) {
  P<CLocalFileStream> in = newP<CLocalFileStream>(path, IIOStream::AccessReadOnly, TFlags<IIOStream::Flags>{});
  long long const length = in->getLength();
  // Shell links are small; a huge file is not one.
  if (length > (16 << 20)) throw CParseError(u"Malformed shell link: the file is too large.", CProps().add(u"path", path));
  Bytes bytes(static_cast<std::size_t>(length));
  in->read(bytes.data(), static_cast<int>(length));
  in->close();
  return parse(bytes.data(), bytes.size(), codePage);
}

void CShellLink::save(String const& path) const {
  Bytes const bytes = serialize();
  P<CLocalFileStream> out = newP<CLocalFileStream>(
      path, IIOStream::AccessWriteOnly, TFlags<IIOStream::Flags>{IIOStream::FlagCreate, IIOStream::FlagTruncate});
  out->write(bytes.data(), static_cast<int>(bytes.size()));
  out->close();
}

void CShellLink::createWithShell(String const& linkPath, String const& target, String const& arguments,
                                 String const& workingDir, String const& description) {
  if (!platform::shellLinkSupported()) throw CNotImplementedError(u"CShellLink::createWithShell (Windows only)");
  char const* api = nullptr;
  if (platform::SysError e = platform::shellLinkCreate(linkPath.str(), target.str(), arguments.str(),
                                                       workingDir.str(), description.str(), api)) {
    throw CSystemError(u"Error creating a shell link.", u"CShellLink::createWithShell", String::fromUTF8(api), e,
                       CProps().add(u"path", linkPath));
  }
}

String CShellLink::getPathWithShell(String const& linkPath) {
  if (!platform::shellLinkSupported()) throw CNotImplementedError(u"CShellLink::getPathWithShell (Windows only)");
  char const* api = nullptr;
  std::u16string target;
  if (platform::SysError e = platform::shellLinkGetPath(linkPath.str(), target, api)) {
    throw CSystemError(u"Error reading a shell link.", u"CShellLink::getPathWithShell", String::fromUTF8(api), e,
                       CProps().add(u"path", linkPath));
  }
  return String(std::move(target));
}

}  // namespace qo
