// Fuzzes the watchdog's command reader over arbitrary frame payloads.
//
// Checks: nothing crashes and no allocation exceeds the frame (text counts
// are bounded by it); only CIOError is thrown; every command read, written
// again, gives exactly the bytes it was read from; a crash command written
// by the allocation-free encoder gives the same bytes as toBytes().
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "qo/core/CIOError.h"
#include "qo/ipc/CWatchdogCommand.h"

namespace {

void check(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  if (size > static_cast<std::size_t>(qo::CWatchdogCommand::kMaxFrameSize)) return 0;
  std::vector<unsigned char> const frame(data, data + size);
  qo::CWatchdogCommand command;
  try {
    command = qo::CWatchdogCommand::fromBytes(frame);
  } catch (qo::CIOError const&) {
    return 0;
  }
  check(command.toBytes() == frame);
  if (command.kind == qo::CWatchdogCommand::kCrash) {
    std::u32string const path32 = command.dumpPath.toUTF32();
    std::vector<wchar_t> wide;
    if (sizeof(wchar_t) == 4) {
      for (char32_t c : path32) wide.push_back(static_cast<wchar_t>(c));
    } else {
      for (char16_t c : command.dumpPath.str()) wide.push_back(static_cast<wchar_t>(c));
    }
    wide.push_back(0);
    std::vector<unsigned char> encoded(frame.size() + 16);
    int const n = qo::CWatchdogCommand::encodeCrash(encoded.data(), static_cast<int>(encoded.size()), command.threadId,
                                                    command.crashTime, command.exceptionPointers,
                                                    command.context.data(), static_cast<int>(command.context.size()),
                                                    wide.data());
    check(n >= 0);
    encoded.resize(static_cast<std::size_t>(n));
    check(encoded == frame);
  }
  return 0;
}
