// qo/util/CMTRand.h - the Mersenne Twister pseudo-random generators MT19937
// (32-bit) and MT19937-64.
//
// Both variants follow the reference algorithm bit for bit: seeded with a
// value they give the same sequence as std::mt19937 / std::mt19937_64, and
// seedByArray is the reference init_by_array (init_by_array64). On top of
// the raw outputs:
// - next32()/next64(): a 64-bit generator gives its upper half as next32();
//   a 32-bit one builds next64() from two outputs, the first as the upper
//   half;
// - uniform(low, high): every value of [low, high] equally likely
//   (Lemire's multiply-and-reject, no modulo bias);
// - nextDouble(): [0, 1) with 53 random bits, as the reference genrand_res53
//   (32-bit) and genrand64_res53 (64-bit) compute it.
// Not for secrets: the state can be recovered from 624 outputs.
//
//   CMTRand rng(CMTRand::k64, 42);
//   int die = static_cast<int>(rng.uniform(1, 6));
//   double p = CMTRand::getGlobal()->nextDouble();
//
// An instance is not thread-safe, except the global one (getGlobal()), whose
// operations take an internal mutex each, so any thread may draw from it.
#ifndef QO_UTIL_CMTRAND_H
#define QO_UTIL_CMTRAND_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/thread/CMutex.h"

namespace qo {

/// MT19937 / MT19937-64 generator. Not thread-safe, except getGlobal()'s.
class QO_API CMTRand : public CBase {
public:
  enum Variant {
    k32 = 0,  ///< MT19937, 32-bit outputs
    k64 = 1   ///< MT19937-64, 64-bit outputs
  };
  /// The reference algorithm's default seed.
  enum : std::uint64_t { kDefaultSeed = 5489u };

  /// Seeded with seed (a 32-bit generator uses its low 32 bits).
  explicit CMTRand(Variant variant = k32, std::uint64_t seed = kDefaultSeed);
  /// Seeded with seedByArray(key, length).
  CMTRand(Variant variant, std::uint64_t const* key, std::size_t length);
  ~CMTRand() override;
  CMTRand(CMTRand const&) = delete;
  CMTRand& operator=(CMTRand const&) = delete;

  /// The process-wide generator (64-bit), seeded from the OS's secure
  /// random source when first used. Thread-safe.
  static P<CMTRand> const& getGlobal();

  /// The variant chosen at construction.
  Variant getVariant() const noexcept { return m_variant; }
  /// Restarts the sequence as the reference init_genrand(64) does.
  void seed(std::uint64_t seed);
  /// Restarts the sequence as the reference init_by_array(64) does; a 32-bit
  /// generator uses the low 32 bits of each key word. Throws
  /// CInvalidArgError for an empty key.
  void seedByArray(std::uint64_t const* key, std::size_t length);
  /// seedByArray with 16 words from the OS's secure random source. Throws
  /// CSystemError ("api" "BCryptGenRandom" on Windows, "getrandom"
  /// elsewhere) when the OS refuses.
  void seedFromOS();

  /// The generator's next raw output (below 2^32 for k32).
  std::uint64_t next();
  /// 32 random bits (see the file comment for the 64-bit variant).
  std::uint32_t next32();
  /// 64 random bits (two outputs for the 32-bit variant).
  std::uint64_t next64();
  /// Uniform in [low, high], both included. Throws CInvalidArgError when
  /// low > high.
  std::int64_t uniform(std::int64_t low, std::int64_t high);
  /// Uniform in [0, 1).
  double nextDouble();

private:
  class CGuard;
  static void* createGlobal();
  std::uint32_t raw32();
  std::uint64_t raw64();
  std::uint64_t next64Unlocked();
  Variant m_variant;
  std::unique_ptr<CMutex> m_pMutex;  // only in the global instance
  int m_index = 0;
  std::uint32_t m_mt32[624];
  std::uint64_t m_mt64[312];
};

}  // namespace qo

#endif  // QO_UTIL_CMTRAND_H
