#include "qo/sys/CSettingsFile.h"

#include "qo/core/CError.h"
#include "qo/core/CFileCorruptedError.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace qo {

namespace {

using CValue = CSystemSettings::CValue;

// ASCII-only folding keeps the comparison independent of the locale.
String fold(String const& text) {
  String folded = text;
  for (std::size_t i = 0; i < folded.length(); ++i)
    if (folded[i] >= u'A' && folded[i] <= u'Z') folded[i] = static_cast<char16_t>(folded[i] + 32);
  return folded;
}

char const kHex[] = "0123456789abcdef";

int hexDigit(char16_t c) {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  return -1;
}

}  // namespace

String CSettingsFile::escape(String const& text) {
  String out;
  std::u16string const& units = text.str();
  for (std::size_t i = 0; i < units.size(); ++i) {
    char16_t c = units[i];
    bool high = c >= 0xD800 && c <= 0xDBFF, low = c >= 0xDC00 && c <= 0xDFFF;
    if (high && i + 1 < units.size() && units[i + 1] >= 0xDC00 && units[i + 1] <= 0xDFFF) {
      out += c;  // a whole pair goes out as UTF-8
      out += units[++i];
    } else if (c == u'\\') {
      out += u"\\\\";
    } else if (c < 0x20 || c == u'=' || c == u',' || c == u'[' || c == u']' || c == u'#' || c == 0x7F) {
      out += u"\\x";
      out += static_cast<char16_t>(kHex[c >> 4]);
      out += static_cast<char16_t>(kHex[c & 15]);
    } else if (high || low) {
      out += u"\\u";
      for (int shift = 12; shift >= 0; shift -= 4) out += static_cast<char16_t>(kHex[(c >> shift) & 15]);
    } else {
      out += c;
    }
  }
  return out;
}

bool CSettingsFile::unescape(String const& text, String& out) {
  out.clear();
  for (std::size_t i = 0; i < text.length(); ++i) {
    char16_t c = text[i];
    if (c != u'\\') {
      out += c;
      continue;
    }
    if (i + 1 >= text.length()) return false;
    char16_t kind = text[++i];
    if (kind == u'\\') {
      out += u'\\';
      continue;
    }
    std::size_t digits = kind == u'x' ? 2 : kind == u'u' ? 4 : 0;
    if (digits == 0 || i + digits >= text.length()) return false;
    unsigned value = 0;
    for (std::size_t k = 1; k <= digits; ++k) {
      int d = hexDigit(text[i + k]);
      if (d < 0) return false;
      value = value * 16 + static_cast<unsigned>(d);
    }
    out += static_cast<char16_t>(value);
    i += digits;
  }
  return true;
}

std::string CSettingsFile::serialize() const {
  String text = u"# Settings kept by the qo library; one [key] per section, name=type:value.\n";
  for (auto const& section : sections) {
    text += u"[";
    text += escape(section.key);
    text += u"]\n";
    for (auto const& entry : section.values) {
      CValue const& value = entry.second;
      text += escape(entry.first);
      text += u"=";
      text += CSystemSettings::getTypeName(value.type);
      text += u":";
      switch (value.type) {
        case CSystemSettings::TypeString:
          text += escape(value.text);
          break;
        case CSystemSettings::TypeInt32:
        case CSystemSettings::TypeInt64:
          text += String::fromUTF8(std::to_string(value.number));
          break;
        case CSystemSettings::TypeBinary:
          for (unsigned char b : value.bytes) {
            text += static_cast<char16_t>(kHex[b >> 4]);
            text += static_cast<char16_t>(kHex[b & 15]);
          }
          break;
        case CSystemSettings::TypeStringList:
          for (std::size_t i = 0; i < value.list.size(); ++i) {
            if (i) text += u",";
            text += escape(value.list[i]);
          }
          break;
        case CSystemSettings::TypeOther:
          break;
      }
      text += u"\n";
    }
  }
  return text.toUTF8();
}

namespace {

bool parseNumber(String const& text, long long low, long long high, std::int64_t& out) {
  std::string narrow = text.toUTF8();
  if (narrow.empty() || narrow.size() > 20) return false;
  std::size_t start = narrow[0] == '-' ? 1 : 0;
  if (start == narrow.size()) return false;
  for (std::size_t i = start; i < narrow.size(); ++i)
    if (narrow[i] < '0' || narrow[i] > '9') return false;
  errno = 0;
  char* end = nullptr;
  long long value = std::strtoll(narrow.c_str(), &end, 10);
  if (errno == ERANGE || value < low || value > high) return false;
  out = value;
  return true;
}

bool parseValue(String const& typeName, String const& body, CValue& value) {
  value = CValue();
  if (typeName == u"string") {
    value.type = CSystemSettings::TypeString;
    return CSettingsFile::unescape(body, value.text);
  }
  if (typeName == u"int32") {
    value.type = CSystemSettings::TypeInt32;
    return parseNumber(body, INT32_MIN, INT32_MAX, value.number);
  }
  if (typeName == u"int64") {
    value.type = CSystemSettings::TypeInt64;
    return parseNumber(body, INT64_MIN, INT64_MAX, value.number);
  }
  if (typeName == u"binary") {
    value.type = CSystemSettings::TypeBinary;
    if (body.length() % 2) return false;
    for (std::size_t i = 0; i < body.length(); i += 2) {
      int high = hexDigit(body[i]);
      int low = hexDigit(body[i + 1]);
      if (high < 0 || low < 0) return false;
      value.bytes.push_back(static_cast<unsigned char>(high * 16 + low));
    }
    return true;
  }
  if (typeName == u"stringList") {
    value.type = CSystemSettings::TypeStringList;
    if (body.isEmpty()) return true;
    std::size_t start = 0;
    for (;;) {
      std::size_t comma = body.Find(u',', start);
      String item;
      if (!CSettingsFile::unescape(body.Mid(start, comma == String::npos ? String::npos : comma - start), item) ||
          item.isEmpty())
        return false;
      value.list.push_back(item);
      if (comma == String::npos) return true;
      start = comma + 1;
    }
  }
  return false;
}

}  // namespace

CSettingsFile::CSection* CSettingsFile::findSection(String const& key) {
  String folded = fold(key);
  for (auto& section : sections)
    if (fold(section.key) == folded) return &section;
  return nullptr;
}

CSettingsFile::CSection& CSettingsFile::getSection(String const& key) {
  if (CSection* section = findSection(key)) return *section;
  sections.push_back(CSection{key, {}});
  return sections.back();
}

bool CSettingsFile::removeKey(String const& key) {
  String folded = fold(key);
  std::size_t before = sections.size();
  std::vector<CSection> kept;
  for (auto& section : sections) {
    String sectionKey = fold(section.key);
    if (sectionKey != folded && !sectionKey.StartsWith(folded + u"/")) kept.push_back(std::move(section));
  }
  sections = std::move(kept);
  return sections.size() != before;
}

CValue* CSettingsFile::CSection::findValue(String const& name) {
  String folded = fold(name);
  for (auto& entry : values)
    if (fold(entry.first) == folded) return &entry.second;
  return nullptr;
}

void CSettingsFile::CSection::setValue(String const& name, CValue const& value) {
  if (CValue* existing = findValue(name))
    *existing = value;
  else
    values.emplace_back(name, value);
}

bool CSettingsFile::CSection::removeValue(String const& name) {
  String folded = fold(name);
  for (auto it = values.begin(); it != values.end(); ++it)
    if (fold(it->first) == folded) {
      values.erase(it);
      return true;
    }
  return false;
}

CSettingsFile CSettingsFile::parse(std::string const& bytes, String const& path) {
  CSettingsFile model;
  String text;
  try {
    text = String::fromUTF8(bytes);
  } catch (CError const&) {
    throw CFileCorruptedError(path);
  }
  CSection* current = nullptr;
  std::size_t start = 0;
  while (start < text.length()) {
    std::size_t end = text.Find(u'\n', start);
    if (end == String::npos) end = text.length();
    String line = text.Mid(start, end - start);
    start = end + 1;
    if (!line.isEmpty() && line[line.length() - 1] == u'\r') line = line.Left(line.length() - 1);
    if (line.isEmpty() || line[0] == u'#') continue;
    if (line[0] == u'[') {
      String key;
      if (line[line.length() - 1] != u']' || !CSettingsFile::unescape(line.Mid(1, line.length() - 2), key) ||
          key.isEmpty())
        throw CFileCorruptedError(path);
      current = model.findSection(key);
      if (!current) {
        model.sections.push_back(CSection{key, {}});
        current = &model.sections.back();
      }
      continue;
    }
    std::size_t equals = line.Find(u'=');
    std::size_t colon = equals == String::npos ? String::npos : line.Find(u':', equals);
    String name;
    CValue value;
    if (!current || colon == String::npos || !CSettingsFile::unescape(line.Left(equals), name) ||
        !parseValue(line.Mid(equals + 1, colon - equals - 1), line.Mid(colon + 1), value))
      throw CFileCorruptedError(path);
    current->setValue(name, value);
  }
  return model;
}

}  // namespace qo
