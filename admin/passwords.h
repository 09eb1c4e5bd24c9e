// Where the password of a backup comes from. Never from the command line.
#pragma once

#include <optional>

#include "common/secure_text.h"

// One password, asked for when it is first needed: from the first line of a file, from the next
// line of standard input, or on a console.
class PasswordSource {
  public:
    // `what` names the password to people, such as "password". A new one is typed twice.
    PasswordSource(const WCHAR* what, const WCHAR* option, bool isNew = false)
        : what_(what), option_(option), isNew_(isNew) {}

    void UseFile(const WString& path) { file_ = path; }
    void UseStandardInput() { usesStandardInput_ = true; }

    // Whether it is given, or can be asked for.
    bool CanGet() const;
    // Throws Failure when there is none.
    const SecureText& Get();
    // The same for one that is set: throws Failure also when it has fewer than 8 UTF-16 units,
    // which SNConfig would not take.
    const SecureText& GetLongEnough();

  private:
    const WCHAR* what_;
    const WCHAR* option_;
    bool isNew_;
    WString file_;
    bool usesStandardInput_ = false;
    std::optional<SecureText> password_;
};
