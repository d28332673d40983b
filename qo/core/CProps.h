// qo/core/CProps.h - an ordered bag of named text properties.
//
// CProps maps String keys to String values, one value per key. Entries are
// kept in ordinal key order (String operator<), never in insertion order, so
// iteration, printing and every error description built from a bag are
// stable. Errors carry one (CError::getParams), XML elements use one as their
// attribute set.
//
//   CProps props;
//   props.add("uri", uri).addLong("length", 42).addBool("append", false);
//   long long length = props.lookupLong("length", -1);   // 42
//   String text = props.toString();  // 'append'='false', 'length'='42', 'uri'='...'
//   CProps copy = CProps::fromString(text);               // equal to props
//
// Text form (toString / fromString): entries in key order, each written as
// 'key'='value', separated by ", ". Inside the quotes a backslash and a quote
// are written \\ and \', and LF, CR and TAB as \n, \r and \t; every other
// code unit (non-ASCII, lone surrogates, '=', ',') stands for itself. An empty
// bag is the empty text. Any bag survives toString -> fromString unchanged.
//
// Not thread-safe (a value; copies are independent).
#ifndef QO_CORE_CPROPS_H
#define QO_CORE_CPROPS_H

#include <map>

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/String.h"

namespace qo {

/// Ordered string-to-string property bag. Not thread-safe.
class QO_API CProps : public CBase {
public:
  using Map = std::map<String, String>;
  using const_iterator = Map::const_iterator;

  CProps() = default;
  CProps(CProps const&) = default;
  CProps(CProps&&) = default;
  CProps& operator=(CProps const&) = default;
  CProps& operator=(CProps&&) = default;
  ~CProps() override;

  /// Sets the value of key, replacing an earlier one. Returns *this so that
  /// calls chain.
  CProps& add(String const& key, String const& value);
  /// add(key, value) only when condition is true. Returns *this.
  CProps& addCond(bool condition, String const& key, String const& value);
  /// Stores "true" or "false". Returns *this.
  CProps& addBool(String const& key, bool value);
  /// Stores the decimal text of value ("-12"). Returns *this.
  CProps& addLong(String const& key, long long value);
  /// add() for every entry of other, in its key order; other's values win.
  /// Adding a bag to itself changes nothing. Returns *this.
  CProps& addAll(CProps const& other);
  /// Removes key; true when it was present.
  bool remove(String const& key);
  /// Removes every entry.
  void clear() noexcept { m_map.clear(); }

  /// The value of key, or "" when the key is absent.
  String lookup(String const& key) const;
  /// True when key is present (possibly with an empty value).
  bool contains(String const& key) const;
  /// The value read as a flag: "true" and "1" give true, "false" and "0"
  /// give false, the words in any ASCII letter case ("TRUE", "False").
  /// Absent keys and any other value (" true", "yes", "") give defaultValue.
  bool lookupBool(String const& key, bool defaultValue) const;
  /// The value read as a decimal number: an optional '+' or '-' and at
  /// least one ASCII digit, nothing else (no blanks), within the range of
  /// long long. Absent keys and any other value ("", "1.5", "0x10", an
  /// overflowing number) give defaultValue.
  long long lookupLong(String const& key, long long defaultValue) const;

  /// The number of entries.
  int getSize() const noexcept { return static_cast<int>(m_map.size()); }
  bool isEmpty() const noexcept { return m_map.empty(); }

  /// Iteration in key order.
  const_iterator begin() const noexcept { return m_map.begin(); }
  const_iterator end() const noexcept { return m_map.end(); }
  /// The underlying map, read-only.
  Map const& getMap() const noexcept { return m_map; }

  /// The text form described at the top of this header; "" for an empty
  /// bag.
  String toString() const;
  /// Reads the text form back. Blanks and tabs are allowed around the
  /// quoted tokens, ',' and '='; a key given twice keeps its last value.
  /// Throws CParseError "Malformed property text." with the property
  /// "offset" (the code-unit index where the text went wrong) for anything
  /// else: a missing quote, '=' or ',', an unknown escape, trailing text.
  static CProps fromString(String const& text);

  friend bool operator==(CProps const& a, CProps const& b) { return a.m_map == b.m_map; }
  friend bool operator!=(CProps const& a, CProps const& b) { return !(a == b); }

private:
  Map m_map;
};

}  // namespace qo

#endif  // QO_CORE_CPROPS_H
