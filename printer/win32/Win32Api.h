// The spooler, GDI and GDI+ calls of the Windows printing layer, in one table. The service
// uses the system's own functions; tests under Wine put in ones that fail on purpose or note
// the order in which objects are released.
#pragma once

#include <windows.h>
#include <winspool.h>
#include <objbase.h>
#include <objidl.h>
#include <gdiplus.h>

namespace kps {

struct Win32Api {
  decltype(&::EnumPrintersA) EnumPrintersA = ::EnumPrintersA;
  decltype(&::EnumPrintersW) EnumPrintersW = ::EnumPrintersW;
  decltype(&::SetDefaultPrinterW) SetDefaultPrinterW = ::SetDefaultPrinterW;
  decltype(&::OpenPrinterW) OpenPrinterW = ::OpenPrinterW;
  decltype(&::ClosePrinter) ClosePrinter = ::ClosePrinter;
  decltype(&::GetPrinterA) GetPrinterA = ::GetPrinterA;
  decltype(&::SetPrinterA) SetPrinterA = ::SetPrinterA;
  decltype(&::DocumentPropertiesA) DocumentPropertiesA = ::DocumentPropertiesA;
  decltype(&::GetJobA) GetJobA = ::GetJobA;
  decltype(&::GetJobW) GetJobW = ::GetJobW;
  decltype(&::SetJobW) SetJobW = ::SetJobW;
  decltype(&::EnumJobsW) EnumJobsW = ::EnumJobsW;
  decltype(&::CoCreateInstance) CoCreateInstance = ::CoCreateInstance;
  decltype(&::DeviceCapabilitiesW) DeviceCapabilitiesW = ::DeviceCapabilitiesW;
  decltype(&::CreateDCW) CreateDCW = ::CreateDCW;
  decltype(&::StartDocW) StartDocW = ::StartDocW;
  decltype(&::StartPage) StartPage = ::StartPage;
  decltype(&::EndPage) EndPage = ::EndPage;
  decltype(&::EndDoc) EndDoc = ::EndDoc;
  decltype(&::DeleteDC) DeleteDC = ::DeleteDC;
  decltype(&Gdiplus::GdiplusStartup) GdiplusStartup = Gdiplus::GdiplusStartup;
  decltype(&Gdiplus::GdiplusShutdown) GdiplusShutdown = Gdiplus::GdiplusShutdown;
  decltype(&Gdiplus::DllExports::GdipLoadImageFromStream) GdipLoadImageFromStream =
      Gdiplus::DllExports::GdipLoadImageFromStream;
  decltype(&Gdiplus::DllExports::GdipGetImageWidth) GdipGetImageWidth = Gdiplus::DllExports::GdipGetImageWidth;
  decltype(&Gdiplus::DllExports::GdipGetImageHeight) GdipGetImageHeight = Gdiplus::DllExports::GdipGetImageHeight;
  decltype(&Gdiplus::DllExports::GdipDisposeImage) GdipDisposeImage =
      Gdiplus::DllExports::GdipDisposeImage;
  decltype(&Gdiplus::DllExports::GdipCreateFromHDC) GdipCreateFromHDC =
      Gdiplus::DllExports::GdipCreateFromHDC;
  decltype(&Gdiplus::DllExports::GdipDeleteGraphics) GdipDeleteGraphics =
      Gdiplus::DllExports::GdipDeleteGraphics;
  decltype(&Gdiplus::DllExports::GdipDrawImageRectI) GdipDrawImageRectI =
      Gdiplus::DllExports::GdipDrawImageRectI;
};

Win32Api& win32Api();

}  // namespace kps
