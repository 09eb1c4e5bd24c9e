// Reports of crashes.
#pragma once

#include <minwindef.h>

extern "C" {
// Flag 1 (no heap): the process leaves no core, neither as a file nor to a program that collects
// them. Other flags are not supported.
WINAPI_EXPORT HRESULT WINAPI WerSetFlags(DWORD dwFlags);
}
