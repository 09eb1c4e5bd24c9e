// How a library offers a name to other parts of the client.
#pragma once

#ifdef _WIN32
#define CLIENT_EXPORT __declspec(dllexport)
#else
#define CLIENT_EXPORT __attribute__((visibility("default")))
#endif
