#include "printer/win32/FileStream.h"

#include <cstdio>
#include <new>

namespace kps {

namespace {

class FileStream final : public IStream {
 public:
  explicit FileStream(FilePtr file) : file_(std::move(file)) {}
  FileStream(const FileStream&) = delete;
  FileStream& operator=(const FileStream&) = delete;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override {
    if (!object) return E_POINTER;
    const bool ours = IsEqualIID(id, __uuidof(IUnknown)) || IsEqualIID(id, __uuidof(ISequentialStream)) ||
                      IsEqualIID(id, __uuidof(IStream));
    *object = ours ? static_cast<IStream*>(this) : nullptr;
    if (!ours) return E_NOINTERFACE;
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(InterlockedIncrement(&references_)); }
  ULONG STDMETHODCALLTYPE Release() override {
    const LONG left = InterlockedDecrement(&references_);
    if (left == 0) delete this;
    return static_cast<ULONG>(left);
  }

  HRESULT STDMETHODCALLTYPE Read(void* buffer, ULONG size, ULONG* read) override {
    const std::size_t got = std::fread(buffer, 1, size, file_.get());
    if (read) *read = static_cast<ULONG>(got);
    return std::ferror(file_.get()) ? STG_E_READFAULT : S_OK;
  }
  HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* position) override {
    if (origin > STREAM_SEEK_END) return STG_E_INVALIDFUNCTION;
    const int whence = origin == STREAM_SEEK_SET ? SEEK_SET : origin == STREAM_SEEK_CUR ? SEEK_CUR : SEEK_END;
    if (_fseeki64(file_.get(), move.QuadPart, whence) != 0) return STG_E_SEEKERROR;
    if (position) position->QuadPart = static_cast<ULONGLONG>(_ftelli64(file_.get()));
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Stat(STATSTG* stat, DWORD) override {
    if (!stat) return STG_E_INVALIDPOINTER;
    const __int64 here = _ftelli64(file_.get());
    if (here < 0 || _fseeki64(file_.get(), 0, SEEK_END) != 0) return STG_E_ACCESSDENIED;
    const __int64 size = _ftelli64(file_.get());
    _fseeki64(file_.get(), here, SEEK_SET);
    *stat = STATSTG{};
    stat->type = STGTY_STREAM;
    stat->cbSize.QuadPart = static_cast<ULONGLONG>(size);
    stat->grfMode = STGM_READ;
    return S_OK;
  }

  // Nothing is ever written, locked or copied through it.
  HRESULT STDMETHODCALLTYPE Write(const void*, ULONG, ULONG*) override { return STG_E_ACCESSDENIED; }
  HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER) override { return STG_E_ACCESSDENIED; }
  HRESULT STDMETHODCALLTYPE CopyTo(IStream*, ULARGE_INTEGER, ULARGE_INTEGER*, ULARGE_INTEGER*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Commit(DWORD) override { return S_OK; }
  HRESULT STDMETHODCALLTYPE Revert() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return STG_E_INVALIDFUNCTION; }
  HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return STG_E_INVALIDFUNCTION; }
  HRESULT STDMETHODCALLTYPE Clone(IStream**) override { return E_NOTIMPL; }

 private:
  ~FileStream() = default;  // through Release only

  FilePtr file_;
  LONG references_ = 1;
};

}  // namespace

StreamPtr streamOnFile(FilePtr file) {
  if (!file) return nullptr;
  return StreamPtr(new (std::nothrow) FileStream(std::move(file)));
}

}  // namespace kps
