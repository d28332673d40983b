#include <gtest/gtest.h>

#include <string>

#include "qo/core/CInvalidArgError.h"
#include "qo/core/CParseError.h"
#include "qo/util/CIniContent.h"

using namespace qo;

namespace {

std::string const kSample =
    "; top comment\r\n"
    "global = g1\r\n"
    "\r\n"
    "[Paths]   ; trailing comment\r\n"
    "Temp = C:\\Temp\r\n"
    "  Quoted=\"  two\\tparts\\n\\\"x\\\"\\x01 \"  # note\r\n"
    "just some text\r\n"
    "temp = ignored duplicate\r\n"
    "#  another comment\r\n"
    "[Empty]\r\n"
    "[paths]\r\n"
    "Later=l\r\n"
    "Empty=";

P<CIniContent> load(std::string const& bytes) {
  auto ini = newP<CIniContent>();
  ini->load(bytes.data(), bytes.size());
  return ini;
}

std::string utf16le(String const& text) {
  std::string out("\xFF\xFE", 2);
  for (char16_t c : text.str()) {
    out += static_cast<char>(c & 0xFF);
    out += static_cast<char>(c >> 8);
  }
  return out;
}

}  // namespace

TEST(CIniContent, ReadsSectionsKeysAndValues) {
  auto ini = load(kSample);
  struct Case {
    char16_t const* section;
    char16_t const* key;
    char16_t const* value;
  } const cases[] = {
      {u"", u"GLOBAL", u"g1"},
      {u"paths", u"temp", u"C:\\Temp"},
      {u"PATHS", u"quoted", u"  two\tparts\n\"x\"\x01 "},
      {u"Paths", u"later", u"l"},
      {u"Paths", u"Empty", u""},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(String(c.key).toUTF8());
    String value;
    ASSERT_TRUE(ini->lookup(c.section, c.key, value));
    EXPECT_EQ(value, String(c.value));
  }
  EXPECT_EQ(ini->getValue(u"Empty", u"Temp", u"none"), String(u"none"));
  EXPECT_EQ(ini->getValue(u"Paths", u"just some text", u"none"), String(u"none"));
  EXPECT_EQ(ini->getSections(), (std::vector<String>{u"", u"Paths", u"Empty"}));
  EXPECT_EQ(ini->getKeys(u"paths"), (std::vector<String>{u"Temp", u"Quoted", u"Later", u"Empty"}));
  EXPECT_TRUE(ini->hasSection(u"EMPTY"));
  EXPECT_FALSE(ini->hasSection(u"missing"));
  EXPECT_EQ(ini->save(), kSample);
}

TEST(CIniContent, EditsChangeOnlyTheirLines) {
  auto ini = load(kSample);
  ini->setValue(u"PATHS", u"TEMP", u"D:\\T");          // keeps "Temp = "
  ini->setValue(u"paths", u"New", u" padded ");        // after the last entry
  ini->setValue(u"", u"g2", u"x");                     // global, after g1
  ini->setValue(u"Fresh", u"k", u"v");                 // new section at the end
  EXPECT_TRUE(ini->removeKey(u"Paths", u"quoted"));
  EXPECT_FALSE(ini->removeKey(u"Paths", u"quoted"));
  EXPECT_TRUE(ini->removeSection(u"empty"));
  EXPECT_EQ(ini->save(),
            "; top comment\r\n"
            "global = g1\r\n"
            "g2=x\r\n"
            "\r\n"
            "[Paths]   ; trailing comment\r\n"
            "Temp = D:\\T\r\n"
            "just some text\r\n"
            "temp = ignored duplicate\r\n"
            "#  another comment\r\n"
            "[paths]\r\n"
            "Later=l\r\n"
            "Empty=\r\n"
            "New=\" padded \"\r\n"
            "\r\n"
            "[Fresh]\r\n"
            "k=v\r\n");
  // What was written reads back the same.
  auto again = load(ini->save());
  EXPECT_EQ(again->getValue(u"paths", u"new"), String(u" padded "));
  EXPECT_EQ(again->getValue(u"fresh", u"K"), String(u"v"));
  EXPECT_THROW(ini->setValue(u"s", u"a=b", u"v"), CInvalidArgError);
  EXPECT_THROW(ini->setValue(u"s", u"", u"v"), CInvalidArgError);
  EXPECT_THROW(ini->setValue(u"a]b", u"k", u"v"), CInvalidArgError);
}

TEST(CIniContent, ValuesThatNeedQuotesRoundTrip) {
  for (char16_t const* value : {u"", u"plain", u" lead", u"trail ", u"\"q", u"a\\b", u"line\r\nbreak", u"nul\0x",
                                u"tab\there", u"; not a comment", u"\u00e4\u6771\U0001F600"}) {
    SCOPED_TRACE(String(value).toUTF8Lossy());
    String v = value == std::u16string_view(u"nul\0x") ? String(std::u16string(u"nul\0x", 5)) : String(value);
    auto ini = newP<CIniContent>();
    ini->setValue(u"s", u"k", v);
    auto back = load(ini->save());
    EXPECT_EQ(back->getValue(u"s", u"k", u"<none>"), v);
  }
}

TEST(CIniContent, EncodingsAreDetectedAndKept) {
  String const text = u"[S\u00e9ction]\nKey=\u6771\u4eac\n";
  struct Case {
    std::string bytes;
    CIniContent::Encoding encoding;
  } const cases[] = {{text.toUTF8(), CIniContent::kUTF8},
                     {"\xEF\xBB\xBF" + text.toUTF8(), CIniContent::kUTF8BOM},
                     {utf16le(text), CIniContent::kUTF16LE}};
  for (auto const& c : cases) {
    SCOPED_TRACE(c.encoding);
    auto ini = load(c.bytes);
    EXPECT_EQ(ini->getEncoding(), c.encoding);
    EXPECT_EQ(ini->getValue(u"s\u00c9ction", u"KEY"), String(u"\u6771\u4eac"));
    EXPECT_EQ(ini->save(), c.bytes);
  }
  auto ini = load(text.toUTF8());
  ini->setEncoding(CIniContent::kUTF16LE);
  EXPECT_EQ(ini->save(), utf16le(text));
}

TEST(CIniContent, BadInputNamesTheLine) {
  struct Case {
    std::string bytes;
    long long line;
    char const* message;
  } const cases[] = {
      {"a=1\n[open\n", 2, "Missing ']' in a section header."},
      {"[s] x\n", 1, "Unexpected text after a section header."},
      {"\r\n\r\n = v", 3, "Missing key name before '='."},
      {"a=\"open\n", 1, "Unterminated quoted value."},
      {"a=1\rb=\"\\q\"", 2, "Unknown escape sequence in a quoted value."},
      {"a=\"\\x4\"", 1, "Bad \\x escape in a quoted value."},
      {"a=\"x\" y", 1, "Unexpected text after a quoted value."},
      {"a=1\nb=2\nc=\xC3(\n", 3, "Invalid UTF-8 text."},
      {std::string("\xFF\xFE" "a\0\n\0x", 7), 2, "Truncated UTF-16 text."},
      {std::string("\xFE\xFF\0[", 4), 1, "Big-endian UTF-16 text is not supported."},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.message);
    auto ini = load("keep=1");
    try {
      ini->load(c.bytes.data(), c.bytes.size());
      ADD_FAILURE() << "loaded";
    } catch (CParseError const& e) {
      EXPECT_EQ(e.getMessage(), String(c.message));
      EXPECT_EQ(e.getParams().lookupLong(u"line", -1), c.line);
    }
    EXPECT_EQ(ini->getValue(u"", u"keep"), String(u"1"));  // unchanged on failure
  }
}
