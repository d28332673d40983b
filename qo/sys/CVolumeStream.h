// qo/sys/CVolumeStream.h - unbuffered reading of a volume, a disk or a disk
// image file, as an aligned input stream.
//
// The bytes come straight from the device, past the system's file cache
// (Windows: CreateFileW with FILE_FLAG_NO_BUFFERING on "\\.\C:",
// "\\.\PhysicalDrive0" or an image file; Linux: O_DIRECT on "/dev/sda1" or an
// image). Such devices demand alignment, and the stream says so:
// getPositionAlign() and getBufferAlign() are the sector size (of the
// device, or of the volume that holds the image), and
// getBestPerformancePositionAlign() is kBestTransferSize rounded up to a
// multiple of it. Positions, transfer sizes and buffer addresses must be
// multiples of the sector size.
// - open() wraps the stream in a CEnforcingIOStreamWrapper, so that a
//   misaligned call is refused with CIOError kind 11 (position or size) or 12
//   (buffer) before it reaches the device. Constructed directly, the stream
//   leaves the check to the system, which fails the read (kind 2).
// - An image whose length is not a multiple of the sector size reads to its
//   end in aligned transfers; the last one comes back short.
// - File systems without unbuffered access (Linux tmpfs refuses O_DIRECT)
//   fail the open with CIOError kind 1 saying so, unless allowBuffered is
//   set: then the file is read through the cache, with the same alignment
//   rules, and isUnbuffered() is false.
// - Reading a device usually needs administrator rights; range locks are
//   not supported (CIOError kind 14).
//
//   P<IAlignedInStream> in = CVolumeStream::open(u"/dev/sdb");
//   int const block = in->getBestPerformancePositionAlign();
//   // buffer: block bytes at an address that is a multiple of in->getBufferAlign()
//   while (int n = in->readLax(buffer, block)) use(buffer, n);
//
// Not thread-safe.
#ifndef QO_SYS_CVOLUMESTREAM_H
#define QO_SYS_CVOLUMESTREAM_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/fs/CURI.h"
#include "qo/stream/IAlignedInStream.h"

namespace qo {

namespace platform {
struct NativeRawDevice;
}  // namespace platform

/// An unbuffered input stream on a volume, disk or image. Not thread-safe.
class QO_API CVolumeStream : public CBase, public IAlignedInStream {
public:
  /// The transfer size the stream recommends (1 MiB): large enough that a
  /// sequential read runs at the device's speed.
  enum : int { kBestTransferSize = 1 << 20 };

  /// Opens path (a device path or an image file) as described at the top.
  /// Throws CIOError kind 1 with "uri", "path" and the system error as
  /// cause ("fileSysProblem" 1 not found, 3 access denied), with the message
  /// "The file system does not support unbuffered access to ..." where that
  /// is the reason. Thread-safe.
  explicit CVolumeStream(String const& path, bool allowBuffered = false);
  /// Closes; never throws.
  ~CVolumeStream() override;
  CVolumeStream(CVolumeStream const&) = delete;
  CVolumeStream& operator=(CVolumeStream const&) = delete;

  /// A new CVolumeStream on path inside a CEnforcingIOStreamWrapper with its
  /// alignment. Throws as the constructor. Thread-safe.
  static P<IAlignedInStream> open(String const& path, bool allowBuffered = false);

  /// The path as given.
  String const& getPath() const noexcept { return m_path; }
  /// Whether the path is a device (not an image file).
  bool isDevice() const noexcept { return m_isDevice; }
  /// False only when opened buffered because the file system has no
  /// unbuffered mode (allowBuffered).
  bool isUnbuffered() const noexcept { return m_unbuffered; }
  /// The medium's physical sector size; 0 when unknown.
  int getPhysicalSectorSize() const noexcept { return m_physicalSectorSize; }

  // IStreamBase
  /// The device's or image's size in bytes (fixed at open).
  long long getLength() const override;
  long long getPosition() const override;
  /// The file URI of the path; the empty URI for device paths without one.
  CURI getURI() override;
  /// 0 <= position <= length, else CIOError kind 7 ("pos", "length");
  /// kind 10 when closed.
  void seek(long long position) override;
  /// Throws CIOError kind 14: volume streams do not lock.
  P<IStreamLock> lockRange(long long start, long long length, LockType type) override;
  /// Closes the device. Idempotent; never throws.
  void close() override;

  // IInStream
  /// Exactly size bytes or CIOError kind 4 ("bytesRead", "toRead") at the
  /// end; kind 2 when the system refuses (a misaligned call), kind 10 when
  /// closed; CInvalidArgError for a negative size.
  void read(void* buffer, int size) override;
  /// Up to size bytes; fewer only at the end. Throws as read() except at
  /// the end.
  int readLax(void* buffer, int size) override;
  /// Same as readLax.
  int readAvailable(void* buffer, int size) override;
  /// True: a device never makes a reader wait for data.
  bool waitReadable(int timeoutMs) const override;
  /// position >= length; CIOError kind 10 when closed.
  bool isEndOfStream() const override;
  /// isEndOfStream() as 1 or 0.
  int isEndOfStream_NonBlocking() const override;

  // IAlignedStreamBase
  /// The sector size.
  int getPositionAlign() override;
  /// The sector size.
  int getBufferAlign() override;
  /// kBestTransferSize rounded up to a multiple of the sector size.
  int getBestPerformancePositionAlign() override;

private:
  void checkOpen(char const* place) const;

  String m_path;
  CURI m_uri;
  platform::NativeRawDevice* m_device = nullptr;
  long long m_length = 0;
  long long m_position = 0;
  int m_sectorSize = 512;
  int m_physicalSectorSize = 0;
  bool m_isDevice = false;
  bool m_unbuffered = true;
};

}  // namespace qo

#endif  // QO_SYS_CVOLUMESTREAM_H
