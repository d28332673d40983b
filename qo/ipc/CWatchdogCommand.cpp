#include "qo/ipc/CWatchdogCommand.h"

#include <cstring>
#include <string>

#include "qo/core/CIOError.h"
#include "qo/core/CProps.h"
#include "qo/core/P.h"
#include "qo/core/TBuffer.h"
#include "qo/stream/CBufferStream.h"
#include "qo/stream/CDataInStream.h"
#include "qo/stream/CDataOutStream.h"
#include "qo/stream/StreamError.h"

namespace qo {

namespace {

using Buffer = TBuffer<unsigned char>;

[[noreturn]] void corrupt(char16_t const* reason) {
  throw makeStreamError(CIOError::kCorruptData, "CWatchdogCommand::fromBytes", String(),
                        CProps().add(u"reason", String(reason)), CURI());
}

// A string record whose count must fit in what is left of the frame, so a
// garbled count cannot ask for gigabytes.
String readBoundedString(CDataInStream& in, long long frameSize) {
  int const count = in.readInt32();
  if (count < 0 || count > frameSize - in.getPosition()) corrupt(u"a text is longer than the command");
  std::string bytes(static_cast<std::size_t>(count), '\0');
  in.read(bytes.data(), count);
  // The record format ends a text at a NUL, so one inside cannot be meant.
  if (bytes.find('\0') != std::string::npos) corrupt(u"a text holds a NUL character");
  try {
    return String::fromUTF8(bytes);
  } catch (CError const&) {
    corrupt(u"a text is not UTF-8");
  }
}

// A little-endian writer into fixed memory, the record format's bytes.
class FixedWriter {
public:
  FixedWriter(unsigned char* buffer, int capacity) : m_buffer(buffer), m_capacity(capacity) {}
  void bytes(void const* data, int size) {
    if (size < 0 || m_size < 0 || size > m_capacity - m_size) {
      m_size = -1;
      return;
    }
    if (size > 0) std::memcpy(m_buffer + m_size, data, static_cast<std::size_t>(size));
    m_size += size;
  }
  void u32(std::uint32_t v) {
    unsigned char b[4];
    for (int i = 0; i < 4; ++i) b[i] = static_cast<unsigned char>(v >> (8 * i));
    bytes(b, 4);
  }
  void u64(std::uint64_t v) {
    unsigned char b[8];
    for (int i = 0; i < 8; ++i) b[i] = static_cast<unsigned char>(v >> (8 * i));
    bytes(b, 8);
  }
  int size() const { return m_size; }
  // Room for a count, filled in by endCount.
  int beginCount() {
    int const at = m_size;
    u32(0);
    return at;
  }
  void endCount(int at) {
    if (m_size < 0 || at < 0) return;
    auto const count = static_cast<std::uint32_t>(m_size - at - 4);
    for (int i = 0; i < 4; ++i) m_buffer[at + i] = static_cast<unsigned char>(count >> (8 * i));
  }
  void utf8(std::uint32_t c) {
    unsigned char b[4];
    int n;
    if (c < 0x80) {
      b[0] = static_cast<unsigned char>(c);
      n = 1;
    } else if (c < 0x800) {
      b[0] = static_cast<unsigned char>(0xC0 | (c >> 6));
      b[1] = static_cast<unsigned char>(0x80 | (c & 0x3F));
      n = 2;
    } else if (c < 0x10000) {
      b[0] = static_cast<unsigned char>(0xE0 | (c >> 12));
      b[1] = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F));
      b[2] = static_cast<unsigned char>(0x80 | (c & 0x3F));
      n = 3;
    } else {
      b[0] = static_cast<unsigned char>(0xF0 | (c >> 18));
      b[1] = static_cast<unsigned char>(0x80 | ((c >> 12) & 0x3F));
      b[2] = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F));
      b[3] = static_cast<unsigned char>(0x80 | (c & 0x3F));
      n = 4;
    }
    bytes(b, n);
  }

private:
  unsigned char* m_buffer;
  int m_capacity;
  int m_size = 0;
};

}  // namespace

std::vector<unsigned char> CWatchdogCommand::toBytes() const {
  P<Buffer> buffer = newP<Buffer>();
  P<CBufferStream> stream = newP<CBufferStream>(buffer.get());
  CDataOutStream out(stream.get());
  out.writeInt32(kind);
  switch (kind) {
    case kHello:
      out.writeInt64(processId).writeInt32(hangTimeoutMs).writeString(crashFolder).writeString(logPath);
      break;
    case kCrash:
      out.writeUInt32(threadId).writeInt64(crashTime).writeUInt64(exceptionPointers);
      out.writeInt32(static_cast<int>(context.size()));
      out.write(context.data(), static_cast<int>(context.size()));
      out.writeString(dumpPath);
      break;
    case kHeartbeat:
    case kStop:
      break;
  }
  unsigned char const* data = buffer->getData();
  return std::vector<unsigned char>(data, data + buffer->getSize());
}

CWatchdogCommand CWatchdogCommand::fromBytes(std::vector<unsigned char> const& frame) {
  P<Buffer> buffer = newP<Buffer>(frame.data(), static_cast<long long>(frame.size()));
  P<CBufferStream> stream = newP<CBufferStream>(static_cast<Buffer const*>(buffer.get()));
  CDataInStream in(stream.get());
  auto const size = static_cast<long long>(frame.size());
  CWatchdogCommand command;
  int const kind = in.readInt32();
  switch (kind) {
    case kHello:
      command.kind = kHello;
      command.processId = in.readInt64();
      command.hangTimeoutMs = in.readInt32();
      command.crashFolder = readBoundedString(in, size);
      command.logPath = readBoundedString(in, size);
      break;
    case kCrash: {
      command.kind = kCrash;
      command.threadId = in.readUInt32();
      command.crashTime = in.readInt64();
      command.exceptionPointers = in.readUInt64();
      int const count = in.readInt32();
      if (count < 0 || count > size - in.getPosition()) corrupt(u"the crash context is longer than the command");
      command.context.resize(static_cast<std::size_t>(count));
      in.read(command.context.data(), count);
      command.dumpPath = readBoundedString(in, size);
      break;
    }
    case kHeartbeat:
      command.kind = kHeartbeat;
      break;
    case kStop:
      command.kind = kStop;
      break;
    default:
      corrupt(u"unknown command");
  }
  if (in.getPosition() != size) corrupt(u"bytes after the command");
  return command;
}

int CWatchdogCommand::encodeCrash(unsigned char* buffer, int capacity, std::uint32_t threadId, long long crashTime,
                                  std::uint64_t exceptionPointers, void const* context, int contextSize,
                                  wchar_t const* dumpPath) noexcept {
  FixedWriter out(buffer, capacity);
  out.u32(kCrash);
  out.u32(threadId);
  out.u64(static_cast<std::uint64_t>(crashTime));
  out.u64(exceptionPointers);
  out.u32(static_cast<std::uint32_t>(contextSize));
  out.bytes(context, contextSize);
  int const count = out.beginCount();
  for (wchar_t const* p = dumpPath; p != nullptr && *p != 0; ++p) {
    auto c = static_cast<std::uint32_t>(*p);
    if (sizeof(wchar_t) == 2 && c >= 0xD800 && c <= 0xDBFF && p[1] >= 0xDC00 && p[1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (static_cast<std::uint32_t>(p[1]) - 0xDC00);
      ++p;
    } else if ((c >= 0xD800 && c <= 0xDFFF) || c > 0x10FFFF) {
      c = 0xFFFD;
    }
    out.utf8(c);
  }
  out.endCount(count);
  return out.size();
}

}  // namespace qo
