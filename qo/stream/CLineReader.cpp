#include "qo/stream/CLineReader.h"

#include <cassert>

namespace qo {

namespace {
constexpr int kBlockSize = 4096;
}  // namespace

CLineReader::CLineReader(IInStream* in)
    : m_in(P<IInStream>::share(in)), m_block(newP<TBuffer<unsigned char>>()) {
  assert(in != nullptr);
}

CLineReader::~CLineReader() = default;

bool CLineReader::fill() {
  m_block->setSize(kBlockSize);
  long long const position = m_in->getPosition();
  // What is there now, but wait for one byte rather than spin on a pipe.
  int got = m_in->readAvailable(m_block->getData(), kBlockSize);
  if (got == 0) got = m_in->readLax(m_block->getData(), 1);
  m_streamAccessed = true;
  m_block->setSize(got);
  m_blockPos = 0;
  m_blockStartPosition = position;
  return got > 0;
}

bool CLineReader::tryReadNextChar(char& c) {
  if (m_blockPos >= m_block->getSize() && !fill()) return false;
  c = static_cast<char>((*m_block)[m_blockPos++]);
  m_afterCR = false;
  return true;
}

bool CLineReader::nextLine() {
  m_streamAccessed = false;
  m_bytes.clear();
  bool swallowLF = m_afterCR;
  char c;
  for (;;) {
    if (!tryReadNextChar(c)) {
      if (m_bytes.empty()) return false;
      m_lineEndPosition = m_blockStartPosition + m_blockPos;  // a last line without terminator
      break;
    }
    if (c == '\n' && swallowLF) {  // the LF of a CR LF pair
      swallowLF = false;
      continue;
    }
    swallowLF = false;
    if (c == '\r' || c == '\n') {
      m_afterCR = c == '\r';
      m_lineEndPosition = m_blockStartPosition + m_blockPos - 1;
      break;
    }
    m_bytes += c;
  }
  // Lines come from files of any origin: a line that is not UTF-8 is
  // Latin-1 rather than an error that would end the read.
  m_line = String::wstringFromUTF8WithLatin1Fallback(m_bytes);
  return true;
}

}  // namespace qo
