// A growable block of bytes in memory as a stream.
#pragma once

#include "platform/com/object.h"

namespace kestor {

// Carries a stored document to the markup component and a new one from it. Writing always appends; only reading moves
// the read position. Used by one thread at a time.
class CMemStream : public com::UncountedObject<IStream, IID_IStream> {
 public:
  CMemStream();                                     // empty, with room for 1024 bytes
  CMemStream(const void* bytes, ULONG quantidade);  // a copy of `bytes`, to be read

  HRESULT Read(void* destination, ULONG count, ULONG* countRead) override;  // S_OK, also at the end
  // Returns E_OUTOFMEMORY, having written nothing, if the room cannot grow. It grows by multiples of 1024 bytes.
  HRESULT Write(const void* source, ULONG count, ULONG* countWritten) override;

  HRESULT Seek(LONGLONG, DWORD, ULONGLONG*) override { return E_NOTIMPL; }
  HRESULT SetSize(ULONGLONG) override { return E_NOTIMPL; }
  HRESULT CopyTo(IStream*, ULONGLONG, ULONGLONG*, ULONGLONG*) override { return E_NOTIMPL; }
  HRESULT Commit(DWORD) override { return E_NOTIMPL; }
  HRESULT Revert() override { return E_NOTIMPL; }
  HRESULT LockRegion(ULONGLONG, ULONGLONG, DWORD) override { return E_NOTIMPL; }
  HRESULT UnlockRegion(ULONGLONG, ULONGLONG, DWORD) override { return E_NOTIMPL; }
  HRESULT Stat(STATSTG* status, DWORD flag) override;  // type and size; never a name
  HRESULT Clone(IStream**) override { return E_NOTIMPL; }

  virtual ~CMemStream();

  // Returns the content, without a NUL at its end; valid until the next Write. The stream is empty if the constructor
  // could not allocate its copy.
  std::uint8_t* Buffer() const { return buffer_; }
  ULONG Size() const { return size_; }
  ULONG Capacity() const { return capacity_; }

 private:
  std::uint8_t* buffer_ = nullptr;
  ULONG capacity_ = 0;
  ULONG size_ = 0;
  ULONG position_ = 0;
};

}  // namespace kestor
