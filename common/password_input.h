// Passwords that are typed, or come by standard input or from a file: never by a command line,
// which other accounts may read.
#pragma once

#include <optional>

#include "common/secure_text.h"

// A password, or what is wrong: a sentence for people without a full stop. A password is not empty,
// comes on a line of fewer than 4096 characters on a console and bytes elsewhere, and holds no NUL.
// What was read on the way to it is wiped.
struct PasswordResult {
    std::optional<SecureText> password;
    WString fault;
};

// Whether standard input is a console, where a password can be typed.
bool IsConsoleInput();

// Asks on standard error with `prompt`, and reads a line from the console that standard input is.
// What is typed is not shown. Whatever ends the program meanwhile, the console shows again what is
// typed afterwards, as far as the program is told of its end.
PasswordResult PasswordFromConsole(const WCHAR* prompt);

// The same for a new password, which is typed a second time after `promptAgain`, equally.
PasswordResult NewPasswordFromConsole(const WCHAR* prompt, const WCHAR* promptAgain);

// The next line of standard input, in UTF-8; a byte order mark before it is passed over. Each call
// takes its own line and nothing that follows. On a console it is typed without a prompt.
PasswordResult PasswordFromStandardInput();

// The first line of a file, in UTF-8; a byte order mark before it is passed over. The file is
// opened once, by its wide path, and has to be a regular one on a disk.
PasswordResult PasswordFromFile(const WString& path);
