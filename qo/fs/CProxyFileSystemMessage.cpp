#include "qo/fs/CProxyFileSystemMessage.h"

#include "qo/core/CBadCollPositionError.h"
#include "qo/core/CBadPathError.h"
#include "qo/core/CBadStateError.h"
#include "qo/core/CFileCorruptedError.h"
#include "qo/core/CFileSystemError.h"
#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CLockFileError.h"
#include "qo/core/CNotImplementedError.h"
#include "qo/core/CParseError.h"
#include "qo/core/CSafeGlobalSlot.h"
#include "qo/core/CSocketError.h"
#include "qo/core/CSystemError.h"
#include "qo/core/CURIMalformedError.h"
#include "qo/core/CUnencodableStringError.h"
#include "qo/core/TypeName.h"
#include "qo/fs/CFileInfo.h"
#include "qo/stream/CDataInStream.h"
#include "qo/stream/CDataOutStream.h"
#include "qo/stream/CDummyWriteBarrier.h"
#include "qo/thread/CMutex.h"
#include "qo/thread/CMutexLock.h"

#include <cstring>
#include <map>
#include <string>
#include <typeinfo>


namespace qo {

namespace {

// Request and answer layouts per operation (field codes at the top of the
// header). The order is the enum's.
struct Layout {
  char const* name;
  char const* request;
  char const* answer;
};

Layout const kLayouts[CProxyFileSystemMessage::OpCount] = {
    {"None", "", ""},
    {"GetFileInfo", "ub", "i"},
    {"GetFileSectorSize", "u", "x"},
    {"FolderOpen", "u", "h"},
    {"FolderNext", "h", "Ib"},
    {"FolderClose", "h", ""},
    {"CreateStream", "unm", "hxnmyu"},
    {"CreateSubDataStream", "usnm", "hxnmyu"},
    {"CreateFolder", "un", ""},
    {"EnsureFolderExists", "un", "b"},
    {"EnsureFileExists", "u", ""},
    {"CreateFileHardLink", "uv", ""},
    {"CreateFolderHardLink", "uv", ""},
    {"CreateFileSymLink", "uv", ""},
    {"CreateFolderSymLink", "uv", ""},
    {"FileExists", "u", "b"},
    {"FolderExists", "u", "b"},
    {"PathExists", "u", "b"},
    {"QuickCheckFolderAccessible", "u", "b"},
    {"IsFolderEmpty", "u", "b"},
    {"DeleteFile", "ub", ""},
    {"DeleteSymLink", "u", ""},
    {"DeleteEmptyFolder", "ub", ""},
    {"UnlinkFolder", "u", ""},
    {"GetVolumeRootPath", "u", "u"},
    {"CreateUniqueFilename", "us", "u"},
    {"CreateUniqueFolderName", "us", "u"},
    {"MoveFileOrFolder", "uvb", ""},
    {"CopyFile", "uvb", ""},
    {"GetFreeSpaceInFolder", "u", "x"},
    {"GetAccountName", "u", "s"},
    {"GetNativeMetaData", "ubs", "sd"},
    {"CommitMeta", "ubM", ""},
    {"BgCreateFolder", "un", "h"},
    {"BgMove", "uvb", "h"},
    {"BgDelete", "u", "h"},
    {"BgPoll", "", "E"},
    {"StreamRead", "hxnb", "d"},
    {"StreamWrite", "hxd", ""},
    {"StreamGetLength", "h", "x"},
    {"StreamSetLength", "hx", ""},
    {"StreamFlush", "h", ""},
    {"StreamLock", "hxyn", "h"},
    {"LockRelease", "h", ""},
    {"StreamClose", "h", ""},
};

[[noreturn]] void corrupt(char const* what) {
  throw CIOError(CIOError::kCorruptData, String(), CProps().add(u"action", String::fromUTF8(what)));
}

// Appends to a vector; what the writer writes into.
class CVectorOutStream : public CBase, public IOutStream {
public:
  explicit CVectorOutStream(std::vector<unsigned char>& out) : m_out(out) {}
  long long getLength() const override { return static_cast<long long>(m_out.size()); }
  long long getPosition() const override { return static_cast<long long>(m_out.size()); }
  CURI getURI() override { return CURI(); }
  void seek(long long) override { throw CIOError(CIOError::kSeekFailed); }
  P<IStreamLock> lockRange(long long, long long, LockType) override { throw CIOError(CIOError::kUnsupported); }
  void close() override {}
  void write(void const* data, int size, IWriteBarrier*) override {
    auto const* bytes = static_cast<unsigned char const*>(data);
    m_out.insert(m_out.end(), bytes, bytes + size);
  }
  void writeKeepBuffer(TConstBufferSlice<unsigned char> const& data, IWriteBarrier* barrier) override {
    write(data.getData(), static_cast<int>(data.getLength()), barrier);
  }
  P<IWriteBarrier> createWriteBarrier(IWriteBarrier*) override { return newP<CDummyWriteBarrier>(); }
  void flush() override {}
  void setLength(long long) override { throw CIOError(CIOError::kUnsupported); }

private:
  std::vector<unsigned char>& m_out;
};

// Reads a vector without copying it.
class CVectorInStream : public CBase, public IInStream {
public:
  explicit CVectorInStream(std::vector<unsigned char> const& in) : m_in(in) {}
  long long getLength() const override { return static_cast<long long>(m_in.size()); }
  long long getPosition() const override { return static_cast<long long>(m_pos); }
  CURI getURI() override { return CURI(); }
  void seek(long long) override { throw CIOError(CIOError::kSeekFailed); }
  P<IStreamLock> lockRange(long long, long long, LockType) override { throw CIOError(CIOError::kUnsupported); }
  void close() override {}
  void read(void* buffer, int size) override {
    if (size < 0 || static_cast<std::size_t>(size) > m_in.size() - m_pos) throw CIOError(CIOError::kUnexpectedEOF);
    if (size > 0) std::memcpy(buffer, m_in.data() + m_pos, static_cast<std::size_t>(size));
    m_pos += static_cast<std::size_t>(size);
  }
  int readLax(void* buffer, int size) override {
    int const n = static_cast<int>(std::min<std::size_t>(static_cast<std::size_t>(size), m_in.size() - m_pos));
    read(buffer, n);
    return n;
  }
  int readAvailable(void* buffer, int size) override { return readLax(buffer, size); }
  bool waitReadable(int) const override { return true; }
  bool isEndOfStream() const override { return m_pos >= m_in.size(); }
  int isEndOfStream_NonBlocking() const override { return isEndOfStream() ? 1 : 0; }

private:
  std::vector<unsigned char> const& m_in;
  std::size_t m_pos = 0;
};

// A count read from the wire that must fit in what is left of the frame,
// each counted item taking at least itemSize bytes.
int readCount(CDataInStream& in, int itemSize, char const* what) {
  int const count = in.readInt32();
  if (count < 0 || static_cast<long long>(count) * itemSize > in.getLength() - in.getPosition()) corrupt(what);
  return count;
}

String readText(CDataInStream& in) {
  int const n = readCount(in, 1, "string");
  std::string bytes(static_cast<std::size_t>(n), '\0');
  if (n > 0) in.read(&bytes[0], n);
  // The record format's writer ends a text at a NUL, so a text holding one
  // could not be sent on whole: no sender makes it.
  if (bytes.find('\0') != std::string::npos) corrupt("string");
  try {
    return String::fromUTF8(bytes);
  } catch (CError const&) {
    corrupt("string");
  }
}

void writeURI(CDataOutStream& out, CURI const& uri) { out.writeString(uri.isEmpty() ? String() : uri.toString(true)); }

CURI readURI(CDataInStream& in) {
  String const text = readText(in);
  if (text.isEmpty()) return CURI();
  try {
    return CURI(text);
  } catch (CError const&) {
    corrupt("uri");
  }
}

void writeTime(CDataOutStream& out, CTime t) { out.writeInt64(t.getMicros()); }
CTime readTime(CDataInStream& in) { return CTime::fromMicros(in.readInt64()); }

void writeInfo(CDataOutStream& out, IFileInfoBase const* info) {
  out.writeBool(info != nullptr);
  if (!info) return;
  writeURI(out, info->getURI());
  out.writeString(info->getName());
  out.writeInt32(info->getKind());
  out.writeInt64(info->getSize());
  writeTime(out, info->getCreationTime());
  writeTime(out, info->getLastWriteTime());
  writeTime(out, info->getLastAccessTime());
  out.writeInt64(static_cast<long long>(info->getAttributes().getRaw()));
  out.writeInt32(info->getPosixMode());
  out.writeString(info->getLinkTarget());
  out.writeBool(info->isLinkToFolder());
  out.writeUInt64(info->getVolumeId());
  out.writeUInt64(info->getFileId());
  out.writeInt64(info->getHardLinkCount());
}

P<IFileInfoBase> readInfo(CDataInStream& in) {
  if (!in.readBool()) return P<IFileInfoBase>();
  P<CFileInfo> info = newP<CFileInfo>(readURI(in));
  info->setName(readText(in));
  int const kind = in.readInt32();
  if (kind < IFileInfoBase::KindNone || kind > IFileInfoBase::KindOther) corrupt("kind");
  info->setKind(static_cast<IFileInfoBase::Kind>(kind));
  info->setSize(in.readInt64());
  info->setCreationTime(readTime(in));
  info->setLastWriteTime(readTime(in));
  info->setLastAccessTime(readTime(in));
  using Attrs = TFlags<IFileInfoBase::Attribute>;
  info->setAttributes(Attrs::fromRaw(static_cast<Attrs::Raw>(in.readInt64())));
  info->setPosixMode(in.readInt32());
  info->setLinkTarget(readText(in));
  info->setLinkToFolder(in.readBool());
  info->setVolumeId(in.readUInt64());
  info->setFileId(in.readUInt64());
  info->setHardLinkCount(in.readInt64());
  return info;
}

// The error factories by class name.
class CErrorRegistry : public CBase {
public:
  CErrorRegistry() {
    add<CError>([](CError const&) { return P<CError>(new CError(String())); });
    add<CIOError>([](CError const&) { return P<CError>(new CIOError(CIOError::kUnknown)); });
    add<CFileSystemError>([](CError const&) { return P<CError>(new CFileSystemError(0)); });
    add<CInvalidArgError>([](CError const&) { return P<CError>(new CInvalidArgError(String(), String())); });
    add<CBadStateError>([](CError const&) { return P<CError>(new CBadStateError(String())); });
    add<CBadPathError>([](CError const&) { return P<CError>(new CBadPathError(String())); });
    add<CBadCollPositionError>([](CError const&) { return P<CError>(new CBadCollPositionError()); });
    add<CFileCorruptedError>([](CError const&) { return P<CError>(new CFileCorruptedError()); });
    add<CLockFileError>(
        [](CError const&) { return P<CError>(new CLockFileError(String(), IStreamBase::LockShared)); });
    add<CNotImplementedError>([](CError const&) { return P<CError>(new CNotImplementedError(String())); });
    add<CParseError>([](CError const&) { return P<CError>(new CParseError(String())); });
    add<CSocketError>([](CError const&) { return P<CError>(new CSocketError(String())); });
    add<CSystemError>([](CError const&) { return P<CError>(new CSystemError(String(), String(), String(), 0)); });
    add<CURIMalformedError>([](CError const&) { return P<CError>(new CURIMalformedError(String())); });
    add<CUnencodableStringError>([](CError const&) { return P<CError>(new CUnencodableStringError()); });
  }
  template <class E>
  void add(CProxyFileSystemMessage::ErrorFactory f) {
    m_factories[String::fromUTF8(typeNameOf(typeid(E)))] = f;
  }
  void set(String const& name, CProxyFileSystemMessage::ErrorFactory f) {
    CMutexLock lock(m_mutex);
    m_factories[name] = f;
  }
  CProxyFileSystemMessage::ErrorFactory find(String const& name) {
    CMutexLock lock(m_mutex);
    auto it = m_factories.find(name);
    return it == m_factories.end() ? nullptr : it->second;
  }
  static P<CErrorRegistry> const& get() {
    static CSafeGlobalSlot slot;
    return TSafeGlobal<CErrorRegistry>::get(slot);
  }

private:
  CMutex m_mutex;
  std::map<String, CProxyFileSystemMessage::ErrorFactory> m_factories;
};

P<CError> readErrorAt(CDataInStream& in, int depth) {
  if (depth > CProxyFileSystemMessage::kMaxCauseDepth) corrupt("error cause depth");
  String const className = readText(in);
  String const message = readText(in);
  String const domain = readText(in);
  long long const code = in.readInt64();
  CProps props;
  int const count = readCount(in, 8, "error properties");
  for (int i = 0; i < count; ++i) {
    String const key = readText(in);
    props.add(key, readText(in));
  }
  P<CError> cause;
  if (in.readBool()) cause = readErrorAt(in, depth + 1);
  CError const fields(message, domain, code, props, cause.get());
  P<CError> e;
  if (CProxyFileSystemMessage::ErrorFactory f = CErrorRegistry::get()->find(className)) e = f(fields);
  if (!e) e = P<CError>(new CError(String()));
  // Sets the fields exactly as sent, whatever the factory's constructor made
  // of its arguments; the class stays the factory's.
  static_cast<CError&>(*e) = fields;
  return e;
}

}  // namespace

CProxyFileSystemMessage::CProxyFileSystemMessage(Op operation) : op(operation) {}

CProxyFileSystemMessage::~CProxyFileSystemMessage() = default;

char const* CProxyFileSystemMessage::opName(int operation) noexcept {
  return operation > OpNone && operation < OpCount ? kLayouts[operation].name : "?";
}

void CProxyFileSystemMessage::writeError(CDataOutStream& out, CError const& e) {
  out.writeString(String::fromUTF8(typeNameOf(typeid(e))));
  out.writeString(e.getMessage());
  out.writeString(e.getErrorCodeDomain());
  out.writeInt64(e.getErrorCode());
  CProps const& props = e.getParams();
  out.writeInt32(static_cast<int>(props.getSize()));
  for (auto const& entry : props) {
    out.writeString(entry.first);
    out.writeString(entry.second);
  }
  PC<CError> cause = e.getCause();
  out.writeBool(!cause.isNull());
  if (cause) writeError(out, *cause);
}

P<CError> CProxyFileSystemMessage::readError(CDataInStream& in) { return readErrorAt(in, 0); }

void CProxyFileSystemMessage::registerErrorClass(String const& className, ErrorFactory factory) {
  CErrorRegistry::get()->set(className, factory);
}

void CProxyFileSystemMessage::writeFields(CDataOutStream& out, char const* layout) const {
  for (char const* f = layout; *f; ++f) {
    switch (*f) {
      case 'u': writeURI(out, uri); break;
      case 'v': writeURI(out, uri2); break;
      case 's': out.writeString(text); break;
      case 'b': out.writeBool(flag); break;
      case 'n': out.writeInt32(number); break;
      case 'm': out.writeInt32(number2); break;
      case 'h': out.writeInt64(handle); break;
      case 'x': out.writeInt64(value); break;
      case 'y': out.writeInt64(value2); break;
      case 'd':
        out.writeInt32(static_cast<int>(data.size()));
        if (!data.empty()) out.write(data.data(), static_cast<int>(data.size()), nullptr);
        break;
      case 'i': writeInfo(out, info.get()); break;
      case 'I':
        out.writeInt32(static_cast<int>(infos.size()));
        for (P<IFileInfoBase> const& entry : infos) writeInfo(out, entry.get());
        break;
      case 'M':
        writeTime(out, meta.creation);
        writeTime(out, meta.lastWrite);
        writeTime(out, meta.lastAccess);
        out.writeBool(meta.hasAttributes).writeInt64(meta.attributes);
        out.writeBool(meta.hasMode).writeInt32(meta.mode);
        break;
      case 'E':
        out.writeInt32(static_cast<int>(ended.size()));
        for (Ended const& e : ended) {
          out.writeInt64(e.handle);
          out.writeBool(!e.error.isNull());
          if (e.error) writeError(out, *e.error);
        }
        break;
      default: break;
    }
  }
}

void CProxyFileSystemMessage::readFields(CDataInStream& in, char const* layout, long long) {
  for (char const* f = layout; *f; ++f) {
    switch (*f) {
      case 'u': uri = readURI(in); break;
      case 'v': uri2 = readURI(in); break;
      case 's': text = readText(in); break;
      case 'b': flag = in.readBool(); break;
      case 'n': number = in.readInt32(); break;
      case 'm': number2 = in.readInt32(); break;
      case 'h': handle = in.readInt64(); break;
      case 'x': value = in.readInt64(); break;
      case 'y': value2 = in.readInt64(); break;
      case 'd': {
        int const n = readCount(in, 1, "data");
        data.resize(static_cast<std::size_t>(n));
        if (n > 0) in.read(data.data(), n);
        break;
      }
      case 'i': info = readInfo(in); break;
      case 'I': {
        int const n = readCount(in, 1, "infos");
        infos.reserve(static_cast<std::size_t>(n));
        for (int i = 0; i < n; ++i) infos.push_back(readInfo(in));
        break;
      }
      case 'M':
        meta.creation = readTime(in);
        meta.lastWrite = readTime(in);
        meta.lastAccess = readTime(in);
        meta.hasAttributes = in.readBool();
        meta.attributes = in.readInt64();
        meta.hasMode = in.readBool();
        meta.mode = in.readInt32();
        break;
      case 'E': {
        int const n = readCount(in, 9, "ended");
        for (int i = 0; i < n; ++i) {
          Ended e;
          e.handle = in.readInt64();
          if (in.readBool()) e.error = readError(in);
          ended.push_back(e);
        }
        break;
      }
      default: break;
    }
  }
}

void CProxyFileSystemMessage::writeRequest(std::vector<unsigned char>& out) const {
  if (op <= OpNone || op >= OpCount) throw CInvalidArgError(u"CProxyFileSystemMessage::writeRequest", u"unknown operation");
  P<CVectorOutStream> sink = newP<CVectorOutStream>(out);
  CDataOutStream data(sink.get());
  data.writeInt32(kVersion).writeInt32(op);
  writeFields(data, kLayouts[op].request);
}

void CProxyFileSystemMessage::writeAnswer(std::vector<unsigned char>& out) const {
  P<CVectorOutStream> sink = newP<CVectorOutStream>(out);
  CDataOutStream data(sink.get());
  if (error) {
    data.writeUInt8(1);
    writeError(data, *error);
    return;
  }
  data.writeUInt8(0);
  if (op > OpNone && op < OpCount) writeFields(data, kLayouts[op].answer);
}

void CProxyFileSystemMessage::writeStreamWrite(std::vector<unsigned char>& out, long long handle, long long position,
                                               void const* data, int size) {
  if (size < 0) throw CInvalidArgError(u"CProxyFileSystemMessage::writeStreamWrite", u"negative size");
  P<CVectorOutStream> sink = newP<CVectorOutStream>(out);
  CDataOutStream stream(sink.get());
  stream.writeInt32(kVersion).writeInt32(OpStreamWrite).writeInt64(handle).writeInt64(position).writeInt32(size);
  auto const* bytes = static_cast<unsigned char const*>(data);
  out.insert(out.end(), bytes, bytes + size);
}

bool CProxyFileSystemMessage::peekStreamWrite(std::vector<unsigned char> const& in, long long& handle,
                                              long long& position, unsigned char const*& data, int& size) {
  constexpr std::size_t kHeader = 4 + 4 + 8 + 8 + 4;
  if (in.size() < kHeader) return false;
  auto le = [&](std::size_t at, int bytes) {
    unsigned long long v = 0;
    for (int i = bytes - 1; i >= 0; --i) v = (v << 8) | in[at + static_cast<std::size_t>(i)];
    return v;
  };
  if (le(0, 4) != static_cast<unsigned long long>(kVersion) || le(4, 4) != static_cast<unsigned long long>(OpStreamWrite))
    return false;
  unsigned long long const count = le(24, 4);
  if (count > 0x7fffffffULL || count != in.size() - kHeader) return false;
  handle = static_cast<long long>(le(8, 8));
  position = static_cast<long long>(le(16, 8));
  data = in.data() + kHeader;
  size = static_cast<int>(count);
  return true;
}

P<CProxyFileSystemMessage> CProxyFileSystemMessage::readRequest(std::vector<unsigned char> const& in) {
  P<CVectorInStream> source = newP<CVectorInStream>(in);
  CDataInStream data(source.get());
  int const version = data.readInt32();
  if (version != kVersion)
    throw CIOError(CIOError::kBadVersion, String(), CProps().addLong(u"version", version).addLong(u"expected", kVersion));
  int const operation = data.readInt32();
  if (operation <= OpNone || operation >= OpCount) corrupt("operation");
  P<CProxyFileSystemMessage> m = newP<CProxyFileSystemMessage>(static_cast<Op>(operation));
  m->readFields(data, kLayouts[operation].request, static_cast<long long>(in.size()));
  if (!data.isEndOfStream()) corrupt("trailing bytes");
  return m;
}

P<CProxyFileSystemMessage> CProxyFileSystemMessage::readAnswer(std::vector<unsigned char> const& in, Op operation) {
  if (operation <= OpNone || operation >= OpCount) corrupt("operation");
  P<CVectorInStream> source = newP<CVectorInStream>(in);
  CDataInStream data(source.get());
  P<CProxyFileSystemMessage> m = newP<CProxyFileSystemMessage>(operation);
  int const status = data.readUInt8();
  if (status == 1) {
    m->error = readError(data);
  } else if (status == 0) {
    m->readFields(data, kLayouts[operation].answer, static_cast<long long>(in.size()));
  } else {
    corrupt("status");
  }
  if (!data.isEndOfStream()) corrupt("trailing bytes");
  return m;
}

}  // namespace qo
