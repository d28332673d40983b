// libFuzzer target for CShellLink: parsing any bytes never crashes and
// throws only CParseError; what parses writes out, reads back with the same
// target, texts, lists and blocks, and writes out the same bytes again.
#include <cstddef>
#include <cstdint>

#include "qo/core/CParseError.h"
#include "qo/sys/CShellLink.h"

namespace {

void check(bool condition) {
  if (!condition) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  qo::P<qo::CShellLink> link;
  try {
    link = qo::CShellLink::parse(data, size);
  } catch (qo::CParseError const& e) {
    check(e.getParams().lookupLong(u"offset", -1) >= 0);
    return 0;
  }
  qo::CShellLink::Bytes const written = link->serialize();
  qo::P<qo::CShellLink> again = qo::CShellLink::parse(written.data(), written.size());
  check(again->getTargetPath() == link->getTargetPath());
  check(again->getName() == link->getName());
  check(again->getArguments() == link->getArguments());
  check(again->getWorkingDir() == link->getWorkingDir());
  check(again->getIDList() == link->getIDList());
  check(again->getExtraDataBlocks() == link->getExtraDataBlocks());
  check(again->getCreationTime() == link->getCreationTime());
  check(again->serialize() == written);
  return 0;
}
