#include "qo/core/CBase.h"

#include <new>

namespace qo {

namespace {
// 0xC0000000 as a signed 32-bit value: the last release adds it to 0 so that
// the count stays far below zero while the object dies.
constexpr std::int32_t kDyingBias = static_cast<std::int32_t>(0xC0000000u);
// Adding this to the bias wraps to exactly 1.
constexpr std::int32_t kResurrect = 0x40000001;
static_assert(static_cast<std::uint32_t>(kDyingBias) + static_cast<std::uint32_t>(kResurrect) == 1u);
}  // namespace

IBase::~IBase() = default;

CBase::~CBase() = default;

bool CBase::checkCastAllowed(std::type_info const&) const { return true; }

void CBase::releaseLast() const {
  m_refCount.fetch_add(kDyingBias, std::memory_order_seq_cst);
  const_cast<CBase*>(this)->deleteThis();
}

void CBase::deleteThis() { delete this; }

P<IBase> CBase::cancelDeleteThisAndReturnNewReference() {
  m_refCount.fetch_add(kResurrect, std::memory_order_seq_cst);
  return P<IBase>(static_cast<IBase*>(this));
}

void* CBase::operator new(std::size_t size) { return ::operator new(size); }
void* CBase::operator new(std::size_t size, RawNew const&) { return ::operator new(size); }
void CBase::operator delete(void* p) noexcept { ::operator delete(p); }
void CBase::operator delete(void* p, RawNew const&) noexcept { ::operator delete(p); }

}  // namespace qo
