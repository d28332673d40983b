// qo/sys/CVistaFeatures.h - the Windows feature switches a program still
// has to ask about.
//
// Every supported Windows has what the Vista-era checks once tested for
// (transactional NTFS aside, which is deprecated and not offered here); what
// still varies per machine or process is:
// - whether the process runs elevated (UAC), which decides whether it may
//   write machine-wide settings or create volume shadow copies;
// - whether User Account Control is on at all;
// - whether the system allows paths beyond MAX_PATH (LongPathsEnabled).
// Outside Windows: isProcessElevated() answers whether the effective user is
// root, isUacEnabled() is false, and areLongPathsEnabled() throws
// CNotImplementedError (there is no such switch to read).
//
//   if (!CVistaFeatures::get()->isProcessElevated()) askForElevation();
//
// Thread-safe.
#ifndef QO_SYS_CVISTAFEATURES_H
#define QO_SYS_CVISTAFEATURES_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"

namespace qo {

/// Feature checks of the running Windows. Thread-safe.
class QO_API CVistaFeatures : public CBase {
public:
  /// The process-wide instance, created on first use. Thread-safe.
  static P<CVistaFeatures> const& get();

  CVistaFeatures();
  ~CVistaFeatures() override;

  /// Windows: the process token is elevated (TokenElevation); elsewhere the
  /// effective user id is 0. Throws CSystemError (api
  /// "GetTokenInformation"). Thread-safe.
  bool isProcessElevated() const;
  /// Windows: User Account Control is on (EnableLUA; on when the switch is
  /// missing). Elsewhere false. Throws CSystemError (api "RegGetValueW").
  /// Thread-safe.
  bool isUacEnabled() const;
  /// Windows: the system lets long-path-aware programs pass paths beyond
  /// MAX_PATH (LongPathsEnabled = 1). Throws CSystemError (api
  /// "RegGetValueW"); outside Windows CNotImplementedError. Thread-safe.
  bool areLongPathsEnabled() const;
};

}  // namespace qo

#endif  // QO_SYS_CVISTAFEATURES_H
