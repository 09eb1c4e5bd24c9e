// What a command found or did: for people, for programs, and as an exit code.
#pragma once

#include <exception>
#include <nlohmann/json.hpp>
#include <string>

#include "common/text.h"

enum class ExitCode {
    kGood = 0,
    kNotGood = 1,        // damaged, different, or not all was done
    kUsage = 2,          // wrong arguments, or no way to ask for a password
    kWrongPassword = 3,  // or, of an encrypted file, damaged: the two cannot be told apart
    kRefused = 4,        // by rights, management or a lock
    kInaccessible = 5,   // a file cannot be read or written
};

// The word for an exit code in the JSON form.
const char* NameOf(ExitCode code);

struct Report {
    ExitCode exitCode = ExitCode::kGood;
    nlohmann::ordered_json facts = nlohmann::ordered_json::object();
    std::string text;   // for people, in lines, UTF-8
    std::string error;  // what failed, as a sentence; empty: nothing
};

// Ends a command: what failed, as a sentence for people without a full stop.
class Failure : public std::exception {
  public:
    Failure(ExitCode exitCode, WStringView text);
    ExitCode Code() const { return exitCode_; }
    const char* what() const noexcept override { return text_.c_str(); }

  private:
    ExitCode exitCode_;
    std::string text_;
};

// A name from a file as it may be shown to people: without control characters.
std::string Shown(WStringView name);
