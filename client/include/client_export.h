// How a library offers a name to other parts of the client.
#pragma once

// CLIENT_EXPORT_RENAMED: on Windows the library's definition file does it, under another name.
#ifdef _WIN32
#define CLIENT_EXPORT __declspec(dllexport)
#define CLIENT_EXPORT_RENAMED
#else
#define CLIENT_EXPORT __attribute__((visibility("default")))
#define CLIENT_EXPORT_RENAMED CLIENT_EXPORT
#endif
