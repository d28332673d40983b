// CAppendableXMLWriter: the order in which a flush changes the two files, so
// that the main file followed by the suffix file is a complete document at
// every instant, whatever moment a kill picks (see the header).
//
// Two facts carry it:
// - A write() that stays inside one page of a file, and an in-place write
//   of the small suffix file, happen whole or not at all when the process
//   is killed; a longer write can stop at any page boundary of the file.
// - A processing instruction "<?q ... ?>" may stand anywhere inside an
//   element, and "?>" alone is just text there. So the main file can hide a
//   tail behind "<?q " that the suffix file's leading "?>" closes, and a
//   main file ending in an open "<?q " swallows the suffix file up to its
//   first "?>". Markup written by the writer never holds "?>" ('>' in text
//   and attribute values is escaped).
#include "qo/log/CAppendableXMLWriter.h"

#include <algorithm>
#include <atomic>
#include <string>

#include "qo/core/CIOError.h"
#include "qo/fs/LocalFile.h"
#include "qo/platform/File.h"
#include "qo/stream/CBufferStream.h"

namespace qo {

namespace {

std::atomic<detail::XMLWriteStepHook> g_stepHook{nullptr};

void step(char const* name) {
  if (detail::XMLWriteStepHook hook = g_stepHook.load(std::memory_order_acquire)) hook(name);
}

constexpr long long kPage = 4096;
char const kHide[] = "<?q ";  // four bytes, as many as the indent they stand in
constexpr std::size_t kHideLength = 4;
char const kUnhide[] = "?>";

bool isContinuationByte(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

// True when bytes written from file offset at can only be cut (at a page
// boundary) where the hidden text stays whole UTF-8 and the four bytes at
// slot stay together.
bool cutsAreHarmless(std::string const& bytes, long long at, std::size_t slot) {
  long long const end = at + static_cast<long long>(bytes.size());
  for (long long boundary = (at / kPage + 1) * kPage; boundary < end; boundary += kPage) {
    std::size_t const i = static_cast<std::size_t>(boundary - at);
    if (isContinuationByte(bytes[i])) return false;
    if (i > slot && i < slot + kHideLength) return false;
  }
  return true;
}

// The end of the first n end tags of a suffix text (innermost first).
std::size_t afterEndTags(std::string const& suffix, std::size_t n) {
  std::size_t pos = 0;
  for (std::size_t i = 0; i < n; ++i) {
    std::size_t const close = suffix.find('>', pos);
    if (close == std::string::npos) return suffix.size();
    pos = close + 1;
  }
  return pos;
}

[[noreturn]] void throwFileError(long long kind, char const* api, platform::SysError const& e, String const& path) {
  throw detail::makeLocalFileError(kind, "CAppendableXMLWriter::flush", api, e, localFileURI(path), CProps());
}

platform::NativeFile* openFile(String const& path, bool append) {
  platform::FileOpenOptions options;
  options.write = true;
  options.append = append;
  options.read = !append;
  options.creation = platform::FileOpenOptions::OpenOrCreate;
  // Others may read the document (and the crash handler append to it)
  // while it is open here.
  options.shareRead = options.shareWrite = options.shareDelete = true;
  String const apiPath = localFileAPIPath(path);
  platform::FileHandle handle = nullptr;
  if (platform::SysError e = platform::fileOpen(apiPath.data(), apiPath.length(), options, handle))
    throwFileError(CIOError::kOpenFailed, "CreateFileW", e, path);
  return handle;
}

}  // namespace

void detail::setXMLWriteStepHook(XMLWriteStepHook hook) noexcept { g_stepHook.store(hook, std::memory_order_release); }

void CAppendableXMLWriter::openMainFile() {
  if (m_mainFile) return;
  m_mainFile = openFile(m_path, true);
  long long size = 0;
  if (platform::SysError e = platform::fileGetSize(m_mainFile, size))
    throwFileError(CIOError::kReadFailed, "GetFileSizeEx", e, m_path);
  m_mainLength = size;
}

void CAppendableXMLWriter::closeFiles() noexcept {
  (void)platform::fileClose(m_mainFile);
  m_mainFile = nullptr;
}

void CAppendableXMLWriter::appendMain(std::string const& bytes) {
  openMainFile();
  platform::SysError const e = platform::fileWrite(m_mainFile, bytes.data(), bytes.size());
  if (e) {
    // What reached the file is the OS's to say.
    long long size = 0;
    if (!platform::fileGetSize(m_mainFile, size)) m_mainLength = size;
    throwFileError(CIOError::kWriteFailed, "WriteFile", e, m_path);
  }
  m_mainLength += static_cast<long long>(bytes.size());
  step("append");
}

void CAppendableXMLWriter::patchMain(long long offset, std::string const& bytes) {
  // The appending handle writes only at the end; a second one writes in place.
  platform::NativeFile* file = openFile(m_path, false);
  platform::SysError e = platform::fileSeek(file, offset);
  if (!e) e = platform::fileWrite(file, bytes.data(), bytes.size());
  (void)platform::fileClose(file);
  if (e) throwFileError(CIOError::kWriteFailed, "WriteFile", e, m_path);
  if (offset + static_cast<long long>(bytes.size()) > m_mainLength)
    m_mainLength = offset + static_cast<long long>(bytes.size());
  step("reveal");
}

void CAppendableXMLWriter::truncateMain(long long length) {
  openMainFile();
  if (platform::SysError e = platform::fileSetSize(m_mainFile, length))
    throwFileError(CIOError::kResizeFailed, "SetEndOfFile", e, m_path);
  m_mainLength = length;
  step("truncate");
}

void CAppendableXMLWriter::writeSuffix(std::string const& bytes) {
  // In place, never emptied first: one write at offset 0 (end tags fit in a
  // page) with blanks over whatever was longer, which is blank after the
  // root; then the file is cut to its new length. Opened each time, as it
  // changes seldom, so a suffix file that someone deleted comes back.
  platform::NativeFile* file = openFile(m_suffixPath, false);
  long long length = 0;
  platform::SysError e = platform::fileGetSize(file, length);
  std::string padded = bytes;
  if (length > static_cast<long long>(bytes.size())) padded.append(static_cast<std::size_t>(length) - bytes.size(), ' ');
  if (!e) e = platform::fileWrite(file, padded.data(), padded.size());
  if (e) {
    (void)platform::fileClose(file);
    throwFileError(CIOError::kWriteFailed, "WriteFile", e, m_suffixPath);
  }
  m_writtenSuffix = bytes;
  step("suffix");
  if (padded.size() > bytes.size()) e = platform::fileSetSize(file, static_cast<long long>(bytes.size()));
  (void)platform::fileClose(file);
  if (e) throwFileError(CIOError::kResizeFailed, "SetEndOfFile", e, m_suffixPath);
}

void CAppendableXMLWriter::renameOverMain(std::string const& bytes) {
  String const temporary = m_path + u".tmp";
  writeLocalFile(temporary, bytes.data(), bytes.size());
  (void)platform::fileClose(m_mainFile);
  m_mainFile = nullptr;
  replaceLocalFile(temporary, m_path);
  step("rename");
  openMainFile();
}

bool CAppendableXMLWriter::appendHidden(std::string const& bytes, long long& slot, bool& prefixed) {
  // bytes starts a new line. Its indent holds "<?q " when it is deep enough;
  // otherwise "<?q " goes before it and becomes blanks at the end of the
  // line before.
  if (bytes.find(kUnhide) != std::string::npos) return false;
  prefixed = bytes.compare(0, 5, "\n    ") != 0;
  std::string hidden = prefixed ? kHide + bytes : bytes;
  std::size_t const at = prefixed ? 0 : 1;
  hidden.replace(at, kHideLength, kHide);
  // Blanks before it move the page boundaries to harmless places.
  for (long long pad = 0; pad < kPage; ++pad) {
    if (!cutsAreHarmless(hidden, m_mainLength + pad, at)) continue;
    slot = m_mainLength + pad + static_cast<long long>(at);
    appendMain(std::string(static_cast<std::size_t>(pad), ' ') + hidden);
    return true;
  }
  return false;
}

void CAppendableXMLWriter::revealHidden(long long slot, bool prefixed, std::string const& bytes) {
  if (prefixed && slot / kPage == (m_mainLength - 1) / kPage) {
    // Within one page the whole tail can move back over "<?q " in one write,
    // leaving the bytes exactly as written and four blanks, cut off next.
    patchMain(slot, bytes + "    ");
    truncateMain(slot + static_cast<long long>(bytes.size()));
  } else {
    patchMain(slot, "    ");
  }
}

void CAppendableXMLWriter::commitSameElements(std::string const& bytes, std::string const& suffix) {
  // The end tags are the same names: the old and the new suffix text fit
  // either main file, so the order between them does not matter.
  long long const inPage = m_mainLength % kPage;
  bool const straddles = inPage + static_cast<long long>(bytes.size()) > kPage;
  if (bytes.size() <= static_cast<std::size_t>(kPage) && (!straddles || bytes[0] == '\n')) {
    // One write inside one page; output that starts a line may be preceded
    // by blanks up to the next page boundary to get there.
    long long const pad = straddles && inPage != 0 ? kPage - inPage : 0;
    appendMain(pad == 0 ? bytes : std::string(static_cast<std::size_t>(pad), ' ') + bytes);
  } else {
    std::string const old = m_writtenSuffix;
    long long slot = 0;
    bool prefixed = false;
    if (bytes[0] == '\n' && !old.empty()) {
      writeSuffix(kUnhide + old);
      if (appendHidden(bytes, slot, prefixed)) {
        revealHidden(slot, prefixed, bytes);
        writeSuffix(suffix);
        return;
      }
    }
    // Text that cannot be hidden (it does not start a line, holds "?>", or
    // every placing splits a character): the whole file is renamed over.
    std::string main = readLocalFile(m_path);
    main.resize(static_cast<std::size_t>(m_mainLength));
    renameOverMain(main + bytes);
  }
  if (suffix != m_writtenSuffix) writeSuffix(suffix);
}

void CAppendableXMLWriter::commitClose(std::string const& bytes, std::string const& suffix, std::size_t closed) {
  std::string const old = m_writtenSuffix;
  long long const inPage = m_mainLength % kPage;
  std::size_t const total = bytes.size() + kHideLength;
  bool const straddles = inPage + static_cast<long long>(total) > kPage;
  if ((straddles && bytes[0] != '\n') || total > static_cast<std::size_t>(kPage) ||
      bytes.find(kUnhide) != std::string::npos) {
    appendMain(bytes);
    writeSuffix(suffix);
    return;
  }
  // "?>" after the end tags of the elements being closed: text in the
  // element that stays open.
  std::size_t const split = afterEndTags(old, closed);
  writeSuffix(old.substr(0, split) + kUnhide + old.substr(split));
  // The closing output and "<?q " in one write: the open instruction hides
  // the suffix's end tags of the closed elements.
  long long const pad = straddles && inPage != 0 ? kPage - inPage : 0;
  appendMain(std::string(static_cast<std::size_t>(pad), ' ') + bytes + kHide);
  writeSuffix(kUnhide + suffix);
  truncateMain(m_mainLength - static_cast<long long>(kHideLength));
  writeSuffix(suffix);
}

void CAppendableXMLWriter::commitOpen(std::string const& bytes, std::string const& suffix, std::size_t opened) {
  std::string const old = m_writtenSuffix;
  long long slot = 0;
  bool prefixed = false;
  if (bytes[0] == '\n' && !old.empty()) {
    writeSuffix(kUnhide + old);
    if (appendHidden(bytes, slot, prefixed)) {
      // The end tags of the new elements go before "?>", where the hiding
      // instruction swallows them until the main file shows the start tags.
      writeSuffix(suffix.substr(0, afterEndTags(suffix, opened)) + kUnhide + old);
      revealHidden(slot, prefixed, bytes);
      writeSuffix(suffix);
      return;
    }
  }
  appendMain(bytes);
  writeSuffix(suffix);
}

void CAppendableXMLWriter::commitNewDocument(std::string const& bytes, std::string const& suffix) {
  TList<String> const& now = m_writer->getOpenElementStack();
  if (!localFileExists(m_path)) {
    // No main file, no document: the suffix file is ready before there is.
    writeSuffix(suffix);
    renameOverMain(bytes);
    return;
  }
  std::size_t const nowCount = now.size();
  bool const closesOnly = m_haveReplacedElements && nowCount > 0 && nowCount <= m_replacedElements.size() &&
                          std::equal(now.begin(), now.end(), m_replacedElements.begin());
  if (!closesOnly) {
    // The replaced pair was no document of ours to keep complete.
    renameOverMain(bytes);
    writeSuffix(suffix);
    return;
  }
  std::string const old = readLocalFile(m_suffixPath);
  m_writtenSuffix = old;
  std::size_t const closed = m_replacedElements.size() - nowCount;
  if (closed == 0) {
    renameOverMain(bytes);
    writeSuffix(suffix);
    return;
  }
  // As closing: the new file ends in "<?q ", which hides the end tags of the
  // elements only the old file has open.
  std::size_t const split = afterEndTags(old, closed);
  writeSuffix(old.substr(0, split) + kUnhide + old.substr(split));
  renameOverMain(bytes + kHide);
  writeSuffix(kUnhide + suffix);
  truncateMain(m_mainLength - static_cast<long long>(kHideLength));
  writeSuffix(suffix);
}

void CAppendableXMLWriter::commitReplacement(std::string const& bytes) {
  // The same elements stay open: the suffix file fits the old main file
  // and the new one alike.
  renameOverMain(bytes);
  std::string const suffix = m_writer->getEndTagsOfOpenElements().toUTF8Lossy();
  if (suffix != m_writtenSuffix) writeSuffix(suffix);
}

void CAppendableXMLWriter::flush() {
  std::string const bytes = getPendingBytes();
  std::string const suffix = m_writer->getEndTagsOfOpenElements().toUTF8Lossy();
  TList<String> const& now = m_writer->getOpenElementStack();
  if (m_newDocument) {
    commitNewDocument(bytes, suffix);
    m_newDocument = false;
  } else if (bytes.empty()) {
    if (suffix != m_writtenSuffix) writeSuffix(suffix);
  } else {
    std::size_t common = 0;
    for (auto a = now.begin(), b = m_flushedElements.cbegin(); a != now.end() && b != m_flushedElements.end() && *a == *b;
         ++a, ++b)
      ++common;
    long long const before = m_mainLength;
    try {
      if (common == now.size() && common == m_flushedElements.size()) {
        commitSameElements(bytes, suffix);
      } else if (common == now.size()) {
        commitClose(bytes, suffix, m_flushedElements.size() - common);
      } else if (common == m_flushedElements.size()) {
        commitOpen(bytes, suffix, now.size() - common);
      } else {
        appendMain(bytes);
        writeSuffix(suffix);
      }
    } catch (...) {
      // Once the main file took the output, it is not written again.
      if (m_mainLength != before) {
        clearPending();
        m_flushedElements = now;
      }
      throw;
    }
  }
  clearPending();
  m_flushedElements = now;
}

void CAppendableXMLWriter::replaceMainData(String const& data) {
  clearPending();
  std::string const bytes = data.toUTF8Lossy();
  if (m_newDocument) {
    m_pending->write(bytes.data(), static_cast<int>(bytes.size()));
    flush();
    return;
  }
  commitReplacement(bytes);
}

}  // namespace qo
