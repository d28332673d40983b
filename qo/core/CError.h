// qo/core/CError.h - the root of every exception the library throws.
//
// A CError carries a message, an optional code within a named code domain
// (for example "IO" 4), an ordered property bag, an optional cause and a
// trace list. Errors without a system code have an empty domain and code -1.
//
// Description texts are composed on demand:
//   getInternalDesc()  "IO 3 (action='write', uri='file:///c:/a')": the code
//                      part ("<domain> <code>", only with a domain), then the
//                      properties in key order in parentheses; either part
//                      alone stands without parentheses.
//   getDesc()          the message, a blank, and "[" internal desc "]" when
//                      the internal description is not empty:
//                      "Error writing data. [IO 3 (action='write')]".
//   what()             getDesc() in UTF-8, computed once and kept.
//
// Errors are reference counted (CBase) so that one can outlive its catch:
//   catch (CError const& e) { m_error = e.clone(); }   // same dynamic class
//   ...
//   if (m_error) m_error->throwClone();                 // rethrown as it was
// Every subclass overrides clone() and throwClone().
//
// Not thread-safe, except what(), which may be called from several threads
// at once (a shared cause is read that way).
#ifndef QO_CORE_CERROR_H
#define QO_CORE_CERROR_H

#include <atomic>
#include <exception>
#include <string>

#include "qo/core/CBase.h"
#include "qo/core/CProps.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/String.h"

namespace qo {

class QO_API CError : public std::exception, public CBase {
public:
  /// An error with the given message (may be empty), code domain (empty for
  /// the library's own errors), code (-1 when there is none) and
  /// properties. A cause, when given, is stored as an independent clone.
  explicit CError(String const& message, String const& errorCodeDomain = String(), long long errorCode = -1,
                  CProps const& props = CProps(), CError const* cause = nullptr);
  /// Copies every field; the cause is shared (it is read-only), the what()
  /// text is computed again on demand.
  CError(CError const& other);
  /// Copies every field, as the copy constructor. Pointers returned by an
  /// earlier what() of the target become invalid.
  CError& operator=(CError const& other);
  ~CError() override;

  /// The message given at construction (may be empty).
  String const& getMessage() const noexcept { return m_message; }
  /// The code domain; empty for the library's own errors.
  String const& getErrorCodeDomain() const noexcept { return m_errorCodeDomain; }
  /// The code within the domain; -1 when there is none.
  long long getErrorCode() const noexcept { return m_errorCode; }
  /// True exactly when the domain is not empty; the code is not looked at.
  bool hasErrorCode() const noexcept { return !m_errorCodeDomain.isEmpty(); }
  /// True when both the domain and the code equal the given ones.
  bool isError(String const& domain, long long code) const noexcept {
    return m_errorCode == code && m_errorCodeDomain == domain;
  }

  /// The property bag. A change made after what() was first called does
  /// not show in what() (its text is kept), but does in getDesc().
  CProps& getParams() noexcept { return m_params; }
  CProps const& getParams() const noexcept { return m_params; }

  /// The cause, or null.
  PC<CError> getCause() const noexcept { return m_cause; }
  /// Stores a clone of cause as the cause, replacing an earlier one.
  void setCause(CError const& cause);

  /// Appends entry to the trace list (the property "_trace", entries joined
  /// with ","); the oldest entry comes first. what() is computed again
  /// afterwards, so pointers it returned before become invalid.
  void addTrace(String const& entry);
  /// The trace list: the value of "_trace", "" when there is none.
  String getTraceListString() const;

  /// The code part and the property part, as described at the top.
  String getInternalDesc() const;
  /// The message followed by "[" internal desc "]"; "" for an error with an
  /// empty message and no domain or properties.
  String getDesc() const;
  /// getDesc() in UTF-8 (lone surrogates as U+FFFD), computed on the first
  /// call and kept for the life of the object. Never throws: if building the
  /// text fails, returns "<exception during CError::what>". Thread-safe.
  char const* what() const noexcept override;

  /// A heap copy of the same dynamic class.
  virtual P<CError> clone() const;
  /// Throws a copy of the same dynamic class.
  [[noreturn]] virtual void throwClone() const;

  /// The property key of the trace list: "_trace".
  static String paramTrace();

private:
  void resetWhatText() noexcept;

  String m_message;
  String m_errorCodeDomain;
  long long m_errorCode;
  CProps m_params;
  PC<CError> m_cause;
  // Published once by compare-and-swap, so concurrent what() calls agree on
  // one text and never free one another's.
  mutable std::atomic<std::string*> m_pWhatText;
};

}  // namespace qo

#endif  // QO_CORE_CERROR_H
