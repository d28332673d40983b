#include "qo/thread/CSignal.h"

namespace qo {

CSignal::CSignal() : m_event(true, false, u"CSignal") {}

CSignal::~CSignal() = default;

void CSignal::set() { m_event.set(); }

void CSignal::reset() { m_event.reset(); }

bool CSignal::isSet() { return m_event.wait(0); }

bool CSignal::wait(int timeoutMillis) { return m_event.wait(timeoutMillis); }

}  // namespace qo
