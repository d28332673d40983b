#include "qo/util/CMTRand.h"

#include <algorithm>

#include "qo/core/CInvalidArgError.h"
#include "qo/core/CSafeGlobalSlot.h"
#include "qo/core/CSystemError.h"
#include "qo/core/CTime.h"
#include "qo/platform/Random.h"

namespace qo {

namespace {

constexpr int kN32 = 624;
constexpr int kM32 = 397;
constexpr int kN64 = 312;
constexpr int kM64 = 156;

// The 128-bit product of a and b, from four 32-bit products.
void mul64(std::uint64_t a, std::uint64_t b, std::uint64_t& hi, std::uint64_t& lo) {
  std::uint64_t const aL = a & 0xFFFFFFFFu, aH = a >> 32, bL = b & 0xFFFFFFFFu, bH = b >> 32;
  std::uint64_t const ll = aL * bL, lh = aL * bH, hl = aH * bL, hh = aH * bH;
  std::uint64_t const mid = (ll >> 32) + (lh & 0xFFFFFFFFu) + (hl & 0xFFFFFFFFu);
  lo = (mid << 32) | (ll & 0xFFFFFFFFu);
  hi = hh + (lh >> 32) + (hl >> 32) + (mid >> 32);
}

}  // namespace

// Takes the mutex of the global instance; other instances have none.
class CMTRand::CGuard {
public:
  explicit CGuard(CMTRand& r) : m_pMutex(r.m_pMutex.get()) {
    if (m_pMutex) m_pMutex->lock();
  }
  ~CGuard() {
    if (m_pMutex) m_pMutex->unlock();
  }
  CGuard(CGuard const&) = delete;
  CGuard& operator=(CGuard const&) = delete;

private:
  CMutex* m_pMutex;
};

CMTRand::CMTRand(Variant variant, std::uint64_t seedValue) : m_variant(variant) { seed(seedValue); }

CMTRand::CMTRand(Variant variant, std::uint64_t const* key, std::size_t length) : m_variant(variant) {
  seedByArray(key, length);
}

CMTRand::~CMTRand() = default;

void CMTRand::seed(std::uint64_t s) {
  CGuard guard(*this);
  if (m_variant == k32) {
    m_mt32[0] = static_cast<std::uint32_t>(s);
    for (int i = 1; i < kN32; ++i)
      m_mt32[i] = 1812433253u * (m_mt32[i - 1] ^ (m_mt32[i - 1] >> 30)) + static_cast<std::uint32_t>(i);
    m_index = kN32;
  } else {
    m_mt64[0] = s;
    for (int i = 1; i < kN64; ++i)
      m_mt64[i] = 6364136223846793005ULL * (m_mt64[i - 1] ^ (m_mt64[i - 1] >> 62)) + static_cast<std::uint64_t>(i);
    m_index = kN64;
  }
}

void CMTRand::seedByArray(std::uint64_t const* key, std::size_t length) {
  if (key == nullptr || length == 0) {
    throw CInvalidArgError(u"CMTRand::seedByArray", u"the key is empty", CProps().addLong(u"length", 0));
  }
  CGuard guard(*this);
  seed(19650218u);
  std::size_t i = 1, j = 0;
  if (m_variant == k32) {
    for (std::size_t k = std::max<std::size_t>(kN32, length); k > 0; --k) {
      m_mt32[i] = (m_mt32[i] ^ ((m_mt32[i - 1] ^ (m_mt32[i - 1] >> 30)) * 1664525u)) +
                  static_cast<std::uint32_t>(key[j]) + static_cast<std::uint32_t>(j);
      if (++i >= kN32) {
        m_mt32[0] = m_mt32[kN32 - 1];
        i = 1;
      }
      if (++j >= length) j = 0;
    }
    for (int k = kN32 - 1; k > 0; --k) {
      m_mt32[i] = (m_mt32[i] ^ ((m_mt32[i - 1] ^ (m_mt32[i - 1] >> 30)) * 1566083941u)) - static_cast<std::uint32_t>(i);
      if (++i >= kN32) {
        m_mt32[0] = m_mt32[kN32 - 1];
        i = 1;
      }
    }
    m_mt32[0] = 0x80000000u;  // the state is never all zero
  } else {
    for (std::size_t k = std::max<std::size_t>(kN64, length); k > 0; --k) {
      m_mt64[i] = (m_mt64[i] ^ ((m_mt64[i - 1] ^ (m_mt64[i - 1] >> 62)) * 3935559000370003845ULL)) + key[j] + j;
      if (++i >= kN64) {
        m_mt64[0] = m_mt64[kN64 - 1];
        i = 1;
      }
      if (++j >= length) j = 0;
    }
    for (int k = kN64 - 1; k > 0; --k) {
      m_mt64[i] = (m_mt64[i] ^ ((m_mt64[i - 1] ^ (m_mt64[i - 1] >> 62)) * 2862933555777941757ULL)) - i;
      if (++i >= kN64) {
        m_mt64[0] = m_mt64[kN64 - 1];
        i = 1;
      }
    }
    m_mt64[0] = 1ULL << 63;
  }
}

void CMTRand::seedFromOS() {
  std::uint64_t key[16];
  if (platform::SysError e = platform::fillRandom(key, sizeof key)) {
    throw CSystemError(u"Error reading random bytes from the system.", u"CMTRand::seedFromOS",
                       String(platform::randomApiName()), e.code, String::wstringFromUTF8WithLatin1Fallback(e.text));
  }
  seedByArray(key, 16);
}

std::uint32_t CMTRand::raw32() {
  if (m_index >= kN32) {
    constexpr std::uint32_t kMag[2] = {0u, 0x9908b0dfu};
    int k = 0;
    for (; k < kN32 - kM32; ++k) {
      std::uint32_t y = (m_mt32[k] & 0x80000000u) | (m_mt32[k + 1] & 0x7fffffffu);
      m_mt32[k] = m_mt32[k + kM32] ^ (y >> 1) ^ kMag[y & 1u];
    }
    for (; k < kN32 - 1; ++k) {
      std::uint32_t y = (m_mt32[k] & 0x80000000u) | (m_mt32[k + 1] & 0x7fffffffu);
      m_mt32[k] = m_mt32[k + (kM32 - kN32)] ^ (y >> 1) ^ kMag[y & 1u];
    }
    std::uint32_t y = (m_mt32[kN32 - 1] & 0x80000000u) | (m_mt32[0] & 0x7fffffffu);
    m_mt32[kN32 - 1] = m_mt32[kM32 - 1] ^ (y >> 1) ^ kMag[y & 1u];
    m_index = 0;
  }
  std::uint32_t y = m_mt32[m_index++];
  y ^= y >> 11;
  y ^= (y << 7) & 0x9d2c5680u;
  y ^= (y << 15) & 0xefc60000u;
  y ^= y >> 18;
  return y;
}

std::uint64_t CMTRand::raw64() {
  if (m_index >= kN64) {
    constexpr std::uint64_t kMag[2] = {0u, 0xB5026F5AA96619E9ULL};
    constexpr std::uint64_t kUpper = 0xFFFFFFFF80000000ULL, kLower = 0x7FFFFFFFULL;
    int k = 0;
    for (; k < kN64 - kM64; ++k) {
      std::uint64_t x = (m_mt64[k] & kUpper) | (m_mt64[k + 1] & kLower);
      m_mt64[k] = m_mt64[k + kM64] ^ (x >> 1) ^ kMag[x & 1u];
    }
    for (; k < kN64 - 1; ++k) {
      std::uint64_t x = (m_mt64[k] & kUpper) | (m_mt64[k + 1] & kLower);
      m_mt64[k] = m_mt64[k + (kM64 - kN64)] ^ (x >> 1) ^ kMag[x & 1u];
    }
    std::uint64_t x = (m_mt64[kN64 - 1] & kUpper) | (m_mt64[0] & kLower);
    m_mt64[kN64 - 1] = m_mt64[kM64 - 1] ^ (x >> 1) ^ kMag[x & 1u];
    m_index = 0;
  }
  std::uint64_t x = m_mt64[m_index++];
  x ^= (x >> 29) & 0x5555555555555555ULL;
  x ^= (x << 17) & 0x71D67FFFEDA60000ULL;
  x ^= (x << 37) & 0xFFF7EEE000000000ULL;
  x ^= x >> 43;
  return x;
}

std::uint64_t CMTRand::next() {
  CGuard guard(*this);
  return m_variant == k32 ? raw32() : raw64();
}

std::uint32_t CMTRand::next32() {
  CGuard guard(*this);
  return m_variant == k32 ? raw32() : static_cast<std::uint32_t>(raw64() >> 32);
}

std::uint64_t CMTRand::next64Unlocked() {
  if (m_variant == k64) return raw64();
  std::uint64_t high = raw32();
  return (high << 32) | raw32();
}

std::uint64_t CMTRand::next64() {
  CGuard guard(*this);
  return next64Unlocked();
}

std::int64_t CMTRand::uniform(std::int64_t low, std::int64_t high) {
  if (low > high) {
    throw CInvalidArgError(u"CMTRand::uniform", u"low is above high",
                           CProps().addLong(u"low", low).addLong(u"high", high));
  }
  std::uint64_t const span = static_cast<std::uint64_t>(high) - static_cast<std::uint64_t>(low);
  CGuard guard(*this);
  if (span == ~std::uint64_t(0)) return static_cast<std::int64_t>(static_cast<std::uint64_t>(low) + next64Unlocked());
  // Lemire's multiply-and-reject: the high half of draw x range is the
  // result; the few draws whose low half falls below 2^w mod range would
  // favour some values and are drawn again. Exact, and usually one draw.
  std::uint64_t const range = span + 1;
  std::uint64_t v;
  if (m_variant == k32 && range <= 0x100000000ULL) {
    std::uint64_t m = static_cast<std::uint64_t>(raw32()) * range;
    if (static_cast<std::uint32_t>(m) < range) {
      auto const threshold = static_cast<std::uint32_t>((0x100000000ULL - range) % range);
      while (static_cast<std::uint32_t>(m) < threshold) m = static_cast<std::uint64_t>(raw32()) * range;
    }
    v = m >> 32;
  } else {
    std::uint64_t hi, lo;
    mul64(next64Unlocked(), range, hi, lo);
    if (lo < range) {
      std::uint64_t const threshold = (0 - range) % range;
      while (lo < threshold) mul64(next64Unlocked(), range, hi, lo);
    }
    v = hi;
  }
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(low) + v);
}

double CMTRand::nextDouble() {
  CGuard guard(*this);
  if (m_variant == k64) return static_cast<double>(raw64() >> 11) * (1.0 / 9007199254740992.0);
  std::uint32_t a = raw32() >> 5, b = raw32() >> 6;
  return (a * 67108864.0 + b) * (1.0 / 9007199254740992.0);
}

void* CMTRand::createGlobal() {
  auto* holder = new P<CMTRand>();
  *holder = P<CMTRand>(new CMTRand(CMTRand::k64));
  (*holder)->m_pMutex = std::make_unique<CMutex>();
  try {
    (*holder)->seedFromOS();
  } catch (CError const&) {
    // Creation must not fail; without the OS source the clock and the
    // holder's address still make the sequence differ between runs.
    std::uint64_t key[2] = {static_cast<std::uint64_t>(CTime::now().getMicros()),
                            static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(holder))};
    (*holder)->seedByArray(key, 2);
  }
  return holder;
}

P<CMTRand> const& CMTRand::getGlobal() {
  static CSafeGlobalSlot g_pInstanceSlot;
  auto const& instance = *static_cast<P<CMTRand>*>(g_pInstanceSlot.use(&createGlobal, &TSafeGlobal<CMTRand>::dispose));
  return instance;
}

}  // namespace qo
