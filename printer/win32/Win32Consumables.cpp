#include "printer/win32/Win32Consumables.h"

#include <objbase.h>
#include <bidispl.h>
#include <winspool.h>

#include <map>
#include <memory>

#include "base/Utf8.h"
#include "printer/win32/Win32Api.h"

namespace kps {

namespace {

// The spooler's bidirectional classes and interfaces (not in MinGW's libuuid).
const CLSID kBidiSpl = {0x2a614240, 0xa4c5, 0x4c33, {0xbd, 0x87, 0x1b, 0xc7, 0x09, 0x33, 0x16, 0x39}};
const CLSID kBidiRequest = {0xb9162a23, 0x45f9, 0x47cc, {0x80, 0xf5, 0xfe, 0x0f, 0xe9, 0xb9, 0xe1, 0xa2}};
const IID kIBidiSpl = {0xd580dc0e, 0xde39, 0x4649, {0xba, 0xa8, 0xbf, 0x0b, 0x85, 0xa0, 0x3a, 0x97}};
const IID kIBidiRequest = {0x8f348bd7, 0x4b47, 0x4755, {0x8a, 0x9d, 0x0f, 0x42, 0x2d, 0xf3, 0xdc, 0x89}};

struct Releaser {
  void operator()(IUnknown* object) const { object->Release(); }
};
template <typename T>
using ComPtr = std::unique_ptr<T, Releaser>;
struct TaskMemory {
  void operator()(void* memory) const { CoTaskMemFree(memory); }
};

// COM on this thread for as long as it is asked; a thread that has it already keeps it.
class ComSession {
 public:
  ComSession() : started_(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {}
  ~ComSession() {
    if (started_) CoUninitialize();
  }
  ComSession(const ComSession&) = delete;
  ComSession& operator=(const ComSession&) = delete;

 private:
  bool started_;
};

template <typename T>
ComPtr<T> create(const CLSID& kind, const IID& wanted) {
  void* made = nullptr;
  if (FAILED(win32Api().CoCreateInstance(kind, nullptr, CLSCTX_INPROC_SERVER, wanted, &made))) return nullptr;
  return ComPtr<T>(static_cast<T*>(made));
}

}  // namespace

std::optional<MediaReport> readConsumables(const std::wstring& printerName) {
  const ComSession com;
  const ComPtr<IBidiSpl> spooler = create<IBidiSpl>(kBidiSpl, kIBidiSpl);
  const ComPtr<IBidiRequest> request = create<IBidiRequest>(kBidiRequest, kIBidiRequest);
  if (!spooler || !request || FAILED(request->SetSchema(L"\\Printer.Consumables")) ||
      FAILED(spooler->BindDevice(printerName.c_str(), BIDI_ACCESS_USER)))
    return std::nullopt;
  HRESULT result = E_FAIL;
  const bool answered = SUCCEEDED(spooler->SendRecv(BIDI_ACTION_GET_ALL, request.get())) &&
                        SUCCEEDED(request->GetResult(&result)) && SUCCEEDED(result);
  spooler->UnbindDevice();
  DWORD count = 0;
  if (!answered || FAILED(request->GetEnumCount(&count))) return std::nullopt;
  // "\Printer.Consumables.Ribbon:Level" (the schema writes a value after ':' or '.'), BIDI_INT
  // in percent, -1 when the printer cannot tell.
  std::map<std::wstring, int> levels;
  std::wstring first;
  for (DWORD i = 0; i < count; ++i) {
    LPWSTR schema = nullptr;
    DWORD type = 0;
    BYTE* data = nullptr;
    ULONG size = 0;
    if (FAILED(request->GetOutputData(i, &schema, &type, &data, &size))) continue;
    const std::unique_ptr<wchar_t, TaskMemory> ownedSchema(schema);
    const std::unique_ptr<BYTE, TaskMemory> ownedData(data);
    const std::wstring path = schema ? schema : L"";
    const std::wstring prefix = L"\\Printer.Consumables.";
    if (path.compare(0, prefix.size(), prefix) != 0) continue;
    const std::wstring rest = path.substr(prefix.size());
    const auto cut = rest.find_last_of(L":.");
    if (cut == std::wstring::npos || rest.substr(cut + 1) != L"Level" || type != BIDI_INT || size < sizeof(INT) || !data)
      continue;
    const std::wstring name = rest.substr(0, cut);
    if (levels.empty()) first = name;
    levels[name] = *reinterpret_cast<const INT*>(data);
  }
  if (levels.empty()) return std::nullopt;
  MediaReport media;
  media.name = wideToUtf8(first);
  if (levels[first] >= 0 && levels[first] <= 100) media.levelPercent = levels[first];
  return media;
}

}  // namespace kps
