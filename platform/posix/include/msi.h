// The Windows Installer's lookup of installed products, over the records that it keeps in the
// registry for products installed for the whole machine:
//   Software\Microsoft\Windows\CurrentVersion\Installer\UpgradeCodes\<upgrade code>
//       a value named by each product that carries the upgrade code
//   Software\Classes\Installer\Products\<product code>
//       the product is known; its "ProductName"
//   Software\Microsoft\Windows\CurrentVersion\Installer\UserData\S-1-5-18\Products\<product code>
//       \InstallProperties: the product is installed; its "DisplayVersion"
// Codes are braced GUIDs at the calls and 32 reordered digits in the registry.
#pragma once

#include <winnt.h>

#define INSTALLPROPERTY_PRODUCTNAME TEXT("ProductName")
#define INSTALLPROPERTY_VERSIONSTRING TEXT("VersionString")

extern "C" {

// The product at an index among those that carry the upgrade code; `lpProductBuf` takes 39
// characters. ERROR_NO_MORE_ITEMS at the end, ERROR_INVALID_PARAMETER for what is no GUID.
WINAPI_EXPORT UINT WINAPI MsiEnumRelatedProductsW(LPCWSTR lpUpgradeCode, DWORD dwReserved,
                                                  DWORD iProductIndex, LPWSTR lpProductBuf);

// A property of a product: one of the two above. *pcchValueBuf is the buffer's size in characters
// on entry and the text's, without the terminator, on return; a buffer that is too small gives
// ERROR_MORE_DATA, a null one only asks for the size. ERROR_UNKNOWN_PRODUCT, and
// ERROR_UNKNOWN_PROPERTY for any other property and for the version of a product that is known but
// not installed. A property without a value is empty.
WINAPI_EXPORT UINT WINAPI MsiGetProductInfoW(LPCWSTR szProduct, LPCWSTR szAttribute,
                                             LPWSTR lpValueBuf, LPDWORD pcchValueBuf);
}
