// Data protection; its calls are in dpapi.h.
#pragma once

#include <winnt.h>

// Counted bytes.
struct CRYPT_INTEGER_BLOB {
    DWORD cbData;
    BYTE* pbData;
};
using DATA_BLOB = CRYPT_INTEGER_BLOB;
using PDATA_BLOB = DATA_BLOB*;

#include <dpapi.h>
