// Fuzzes the proxy file-system message reader: the bytes are read as a
// request and, with the first byte choosing the operation, as an answer.
//
// Checks: nothing crashes or allocates beyond the input's size; only
// CError subclasses are thrown; a message that reads, written again, reads
// back to the same bytes (the record format has one encoding per value);
// the server's shortcut for writes accepts only requests the full reader
// reads to the same fields.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "qo/core/CError.h"
#include "qo/fs/CProxyFileSystemMessage.h"

namespace {

using Msg = qo::CProxyFileSystemMessage;

void check(bool condition) {
  if (!condition) std::abort();
}

// Writing what was read and reading it again gives the same bytes.
void checkStable(std::vector<unsigned char> const& written, bool request, Msg::Op op) {
  qo::P<Msg> again = request ? Msg::readRequest(written) : Msg::readAnswer(written, op);
  std::vector<unsigned char> twice;
  if (request) {
    again->writeRequest(twice);
  } else {
    again->writeAnswer(twice);
  }
  check(twice == written);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  if (size > (1u << 16)) return 0;
  std::vector<unsigned char> const bytes(data, data + size);
  // The write shortcut accepts only what the full reader reads the same way.
  long long handle = 0, position = 0;
  unsigned char const* payload = nullptr;
  int payloadSize = 0;
  if (Msg::peekStreamWrite(bytes, handle, position, payload, payloadSize)) {
    qo::P<Msg> m = Msg::readRequest(bytes);  // must not throw
    check(m->op == Msg::OpStreamWrite && m->handle == handle && m->value == position);
    check(m->data == std::vector<unsigned char>(payload, payload + payloadSize));
  }
  try {
    qo::P<Msg> m = Msg::readRequest(bytes);
    std::vector<unsigned char> written;
    m->writeRequest(written);
    checkStable(written, true, m->op);
  } catch (qo::CError const&) {
  }
  if (size > 0) {
    auto const op = static_cast<Msg::Op>(1 + data[0] % (Msg::OpCount - 1));
    std::vector<unsigned char> const rest(data + 1, data + size);
    try {
      qo::P<Msg> m = Msg::readAnswer(rest, op);
      std::vector<unsigned char> written;
      m->writeAnswer(written);
      checkStable(written, false, op);
    } catch (qo::CError const&) {
    }
  }
  return 0;
}
