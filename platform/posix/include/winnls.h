// Code pages.
#pragma once

#include <winnt.h>

#define CP_ACP 0  // the system's 8-bit text: UTF-8 here
#define CP_UTF8 65001

// Results of comparisons.
#define CSTR_LESS_THAN 1
#define CSTR_EQUAL 2
#define CSTR_GREATER_THAN 3

#define MB_PRECOMPOSED 0x00000001
#define MB_ERR_INVALID_CHARS 0x00000008
#define WC_ERR_INVALID_CHARS 0x00000080
