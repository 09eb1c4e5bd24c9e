// Code pages.
#pragma once

#include <winnt.h>

#define CP_ACP 0  // the system's 8-bit text: UTF-8 here
#define CP_UTF8 65001

#define MB_PRECOMPOSED 0x00000001
#define MB_ERR_INVALID_CHARS 0x00000008
#define WC_ERR_INVALID_CHARS 0x00000080
