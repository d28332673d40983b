// qo/core/CFileCorruptedError.h - a file whose content cannot be right.
//
//   throw CFileCorruptedError();       // "The file is corrupted."
//   throw CFileCorruptedError(path);   // "The file '<path>' is corrupted."
// Empty domain, code -1, no properties.
//
// Not thread-safe (as CError).
#ifndef QO_CORE_CFILECORRUPTEDERROR_H
#define QO_CORE_CFILECORRUPTEDERROR_H

#include "qo/core/CError.h"
#include "qo/core/Export.h"

namespace qo {

/// A corrupted file, optionally named. Not thread-safe.
class QO_API CFileCorruptedError : public CError {
public:
  /// Message "The file is corrupted."; empty domain, code -1.
  CFileCorruptedError();
  /// Message "The file '" + path + "' is corrupted."; empty domain, code -1.
  explicit CFileCorruptedError(String const& path);
  CFileCorruptedError(CFileCorruptedError const& other);
  CFileCorruptedError& operator=(CFileCorruptedError const& other);
  ~CFileCorruptedError() override;

  /// A heap copy.
  P<CError> clone() const override;
  /// Throws a copy.
  [[noreturn]] void throwClone() const override;
};

}  // namespace qo

#endif  // QO_CORE_CFILECORRUPTEDERROR_H
