#include "commands.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

#include "reg_file.h"
#include "registry_access.h"
#include "value_text.h"

namespace {

constexpr char kDone[] = "The operation completed successfully.";
constexpr char kNotFound[] = "The system was unable to find the specified registry key or value.";
constexpr char kAccessDenied[] = "Access is denied.";
constexpr char kCancelled[] = "The operation was canceled by the user.";
constexpr char kRegistryError[] = "Error accessing the registry.";
constexpr char kFileError[] = "Error opening the file. There may be a disk or file system error.";
constexpr char kWriteError[] =
    "Unable to write to the file. There may be a disk or file system error.";

// Why a command ends without having done its work: the line after "ERROR: ".
struct Failure {
    std::string message;
};

// --- Words --------------------------------------------------------------------------------------

// The words of one command: the key, and the switches that the command knows.
class Words {
  public:
    Words(const char* command, const std::vector<WString>& words)
        : command_(command), words_(words) {}

    [[noreturn]] void SyntaxError(const std::string& detail = {}) const {
        throw Failure{"Invalid syntax." + (detail.empty() ? "" : " " + detail) + "\nType \"REG " +
                      command_ + " /?\" for usage."};
    }
    bool AtEnd() const { return next_ == words_.size(); }
    WString Next() {
        if (AtEnd()) SyntaxError();
        return words_[next_++];
    }
    // Goes past the next word when it is this switch.
    bool Skip(WStringView name) {
        if (AtEnd() || !IsSwitch(words_[next_], name)) return false;
        ++next_;
        return true;
    }
    KeyName NextKey() {
        auto key = ParseKeyName(Next(), RootForms::kLongAndShort);
        if (!key) {
            throw Failure{std::string("Invalid key name.\nType \"REG ") + command_ +
                          " /?\" for usage."};
        }
        return *std::move(key);
    }

  private:
    const char* command_;
    const std::vector<WString>& words_;
    std::size_t next_ = 0;
};

// Stores a switch's argument once.
void Take(Words& words, std::optional<WString>& place) {
    if (place) words.SyntaxError();
    place = words.Next();
}

// --- Talking to the user
// --------------------------------------------------------------------------

void Print(WStringView line) {
    std::cout << WideToUtf8(line) << '\n';
}

int Succeed() {
    std::cout << kDone << '\n';
    return 0;
}

// Ends the command unless the user agrees.
void AskUser(const std::string& question) {
    std::cout << question << "(Yes/No)? " << std::flush;
    std::string answer;
    std::getline(std::cin, answer);
    if (answer.empty() || (answer[0] != 'y' && answer[0] != 'Y')) throw Failure{kCancelled};
}

std::string MessageOf(LSTATUS code) {
    if (code == ERROR_FILE_NOT_FOUND) return kNotFound;
    if (code == ERROR_ACCESS_DENIED) return kAccessDenied;
    return kRegistryError;
}

// Runs a command's body and tells its failure.
template <typename Body>
int Tell(Body body) {
    std::string message;
    try {
        return body();
    } catch (const Failure& failure) {
        message = failure.message;
    } catch (const RegistryError& error) {
        message = MessageOf(error.code);
    }
    std::cout << std::flush;
    std::cerr << "ERROR: " << message << '\n';
    return 1;
}

// --- add
// ------------------------------------------------------------------------------------------

int Add(const std::vector<WString>& given) {
    return Tell([&] {
        // 1. The words.
        Words words("ADD", given);
        const KeyName keyName = words.NextKey();
        std::optional<WString> name;
        std::optional<WString> type;
        std::optional<WString> separator;
        std::optional<WString> text;
        bool force = false;
        while (!words.AtEnd()) {
            if (words.Skip(TEXT("ve"))) {
                if (name) words.SyntaxError();
                name = WString();
            } else if (words.Skip(TEXT("v"))) {
                Take(words, name);
            } else if (words.Skip(TEXT("t"))) {
                Take(words, type);
            } else if (words.Skip(TEXT("s"))) {
                Take(words, separator);
            } else if (words.Skip(TEXT("d"))) {
                Take(words, text);
            } else if (words.Skip(TEXT("f"))) {
                force = true;
            } else {
                words.SyntaxError();
            }
        }
        // 2. What they mean.
        const auto typeNumber = TypeNamed(type.value_or(TEXT("REG_SZ")));
        if (!typeNumber || (separator && separator->size() != 1)) words.SyntaxError();
        if (!name && (type || separator || text)) name = WString();
        const auto data =
            DataOfText(*typeNumber, text.value_or(WString()), separator.value_or(TEXT("\\0")));
        if (!data) words.SyntaxError("Specify a valid value for '/d'.");
        if (name && name->size() > kLongestValueName) words.SyntaxError();
        // 3. The key, and the value.
        const UniqueRegKey key = CreateKey(keyName.root, keyName.path);
        if (name) {
            if (!force && FindValue(key.get(), *name)) {
                AskUser("Value " + WideToUtf8(*name) + " exists, overwrite");
            }
            SetValue(key.get(), {*name, *typeNumber, *data});
        }
        return Succeed();
    });
}

// --- query
// ----------------------------------------------------------------------------------------

void PrintValue(const RegValue& value) {
    WString line = TEXT("    ");
    line += value.name.empty() ? TEXT("(Default)") : value.name;
    line.append(TEXT("    ")).append(TypeName(value.type)).append(TEXT("    "));
    Print(line.append(DataText(value.type, value.data)));
}

// Shows the value of this name in every key of the tree and returns how many there are.
int QueryNameInTree(HKEY key, const WString& fullName, const WString& name) {
    int found = 0;
    if (const auto value = FindValue(key, name)) {
        Print(WString(TEXT("\n")).append(fullName));
        PrintValue(*value);
        found = 1;
    }
    for (const WString& subkey : SubkeysOf(key)) {
        found += QueryNameInTree(OpenKey(key, subkey, KEY_READ).get(),
                                 WString(fullName).append(TEXT("\\")).append(subkey), name);
    }
    return found;
}

void QueryTree(HKEY key, const WString& fullName) {
    Print(WString(TEXT("\n")).append(fullName));
    for (const RegValue& value : ValuesOf(key)) PrintValue(value);
    for (const WString& subkey : SubkeysOf(key)) {
        QueryTree(OpenKey(key, subkey, KEY_READ).get(),
                  WString(fullName).append(TEXT("\\")).append(subkey));
    }
}

// The key's values, then the names of its subkeys.
void QueryKey(HKEY key, const WString& fullName) {
    const std::vector<RegValue> values = ValuesOf(key);
    Print(TEXT(""));
    if (!values.empty()) {
        Print(fullName);
        for (const RegValue& value : values) PrintValue(value);
        Print(TEXT(""));
    }
    for (const WString& subkey : SubkeysOf(key)) {
        Print(WString(fullName).append(TEXT("\\")).append(subkey));
    }
}

// One value; the default value is shown also when it is not set.
void QueryValue(HKEY key, const WString& fullName, const WString& name) {
    const auto value = FindValue(key, name);
    if (!value && !name.empty()) throw Failure{kNotFound};
    Print(WString(TEXT("\n")).append(fullName));
    if (value) {
        PrintValue(*value);
    } else {
        Print(TEXT("    (Default)    REG_SZ    (value not set)"));
    }
    Print(TEXT(""));
}

int Query(const std::vector<WString>& given) {
    return Tell([&] {
        Words words("QUERY", given);
        const KeyName keyName = words.NextKey();
        std::optional<WString> name;
        bool tree = false;
        while (!words.AtEnd()) {
            if (words.Skip(TEXT("ve"))) {
                if (name) words.SyntaxError();
                name = WString();
            } else if (words.Skip(TEXT("v"))) {
                Take(words, name);
            } else if (words.Skip(TEXT("s"))) {
                tree = true;
            } else {
                words.SyntaxError();
            }
        }
        const UniqueRegKey key = OpenKey(keyName.root, keyName.path, KEY_READ);
        if (tree && name) {
            const int found = QueryNameInTree(key.get(), keyName.full, *name);
            std::cout << "\nEnd of search: " << found << " match(es) found.\n";
            return found > 0 ? 0 : 1;
        }
        if (tree) {
            QueryTree(key.get(), keyName.full);
            Print(TEXT(""));
        } else if (name) {
            QueryValue(key.get(), keyName.full, *name);
        } else {
            QueryKey(key.get(), keyName.full);
        }
        return 0;
    });
}

// --- delete
// ---------------------------------------------------------------------------------------

int Delete(const std::vector<WString>& given) {
    return Tell([&] {
        // 1. The words.
        Words words("DELETE", given);
        const KeyName keyName = words.NextKey();
        std::optional<WString> name;
        bool allValues = false;
        bool force = false;
        while (!words.AtEnd()) {
            if (words.Skip(TEXT("ve"))) {
                if (name) words.SyntaxError();
                name = WString();
            } else if (words.Skip(TEXT("va"))) {
                allValues = true;
            } else if (words.Skip(TEXT("v"))) {
                Take(words, name);
            } else if (words.Skip(TEXT("f"))) {
                force = true;
            } else {
                words.SyntaxError();
            }
        }
        if (allValues && name) words.SyntaxError();
        // 2. A key, all of its values, or one.
        const std::string key = WideToUtf8(keyName.full);
        if (!name && !allValues) {
            OpenKey(keyName.root, keyName.path, KEY_READ);
            if (!force) AskUser("Permanently delete the registry key " + key + " ");
            DeleteTree(keyName);
            return Succeed();
        }
        const UniqueRegKey opened = OpenKey(keyName.root, keyName.path, KEY_READ | KEY_SET_VALUE);
        if (name) {
            if (!FindValue(opened.get(), *name)) throw Failure{kNotFound};
            if (!force) AskUser("Delete the registry value " + WideToUtf8(*name) + " ");
            DeleteValue(opened.get(), *name);
        } else {
            if (!force) AskUser("Delete all values under the registry key " + key + " ");
            for (const RegValue& value : ValuesOf(opened.get())) {
                DeleteValue(opened.get(), value.name);
            }
        }
        return Succeed();
    });
}

// --- import and export
// ----------------------------------------------------------------------------

std::filesystem::path PathOf(const WString& file) {
    return WideToUtf8(file);
}

std::string ReadFile(const WString& file) {
    std::error_code ignored;
    std::ifstream stream(PathOf(file), std::ios::binary);
    if (!stream || std::filesystem::is_directory(PathOf(file), ignored)) throw Failure{kFileError};
    std::string bytes((std::istreambuf_iterator<char>(stream)), {});
    if (stream.bad()) throw Failure{kFileError};
    return bytes;
}

void Apply(const std::vector<RegOperation>& operations) {
    UniqueRegKey key;
    const auto orMissing = [](auto change) {
        try {
            change();
        } catch (const RegistryError& error) {
            if (error.code != ERROR_FILE_NOT_FOUND) throw;
        }
    };
    for (const RegOperation& operation : operations) {
        switch (operation.action) {
            case RegAction::kOpenKey:
                key = CreateKey(operation.key.root, operation.key.path);
                break;
            case RegAction::kDeleteKey:
                orMissing([&] { DeleteTree(operation.key); });
                break;
            case RegAction::kSetValue:
                SetValue(key.get(), {operation.name, operation.type, operation.data});
                break;
            case RegAction::kDeleteValue:
                orMissing([&] { DeleteValue(key.get(), operation.name); });
                break;
        }
    }
}

int Import(const std::vector<WString>& given) {
    return Tell([&] {
        Words words("IMPORT", given);
        const WString file = words.Next();
        if (!words.AtEnd()) words.SyntaxError();
        const auto parsed = ParseRegFile(ReadFile(file));
        if (const auto* error = std::get_if<RegFileError>(&parsed)) {
            throw Failure{WideToUtf8(file) + ", line " + std::to_string(error->line) + ": " +
                          error->what + ". Nothing was imported."};
        }
        Apply(std::get<std::vector<RegOperation>>(parsed));
        return Succeed();
    });
}

void AppendTree(WString& text, HKEY key, const WString& fullName) {
    const auto demand = [&](WStringView name) {
        if (FitsRegFile(name)) return;
        throw Failure{"A name below " + WideToUtf8(fullName) + " does not fit into a file."};
    };
    text += RegKeyLine(fullName);
    for (const RegValue& value : ValuesOf(key)) {
        demand(value.name);
        text += RegValueLine(value.name, value.type, value.data);
    }
    text += RegKeyEnd();
    for (const WString& subkey : SubkeysOf(key)) {
        demand(subkey);
        AppendTree(text, OpenKey(key, subkey, KEY_READ).get(),
                   WString(fullName).append(TEXT("\\")).append(subkey));
    }
}

int Export(const std::vector<WString>& given) {
    return Tell([&] {
        // 1. The words.
        Words words("EXPORT", given);
        const KeyName keyName = words.NextKey();
        const WString file = words.Next();
        bool overwrite = false;
        while (!words.AtEnd()) {
            if (!words.Skip(TEXT("y"))) words.SyntaxError();
            overwrite = true;
        }
        // 2. The tree.
        const UniqueRegKey key = OpenKey(keyName.root, keyName.path, KEY_READ);
        WString text = RegFileStart();
        AppendTree(text, key.get(), keyName.full);
        // 3. The file.
        if (!overwrite && std::filesystem::exists(PathOf(file))) {
            AskUser("File " + WideToUtf8(file) + " already exists. Overwrite ");
        }
        std::ofstream stream(PathOf(file), std::ios::binary | std::ios::trunc);
        stream << RegFileBytes(text);
        if (!stream.flush()) throw Failure{kWriteError};
        return Succeed();
    });
}

}  // namespace

bool IsSwitch(WStringView word, WStringView name) {
    return !word.empty() && (word.front() == '/' || word.front() == '-') &&
           EqualWithoutCase(word.substr(1), name);
}

const std::vector<Command> kCommands = {
    {TEXT("add"),
     "REG ADD KeyName [/v ValueName | /ve] [/t Type] [/s Separator] [/d Data] [/f]\n"
     "\n"
     "  KeyName  ROOT\\SubKey; ROOT is HKLM, HKCU, HKCR, HKU or its long name\n"
     "  /v       the value to set; /ve: the default value; neither: the key alone\n"
     "  /t       REG_SZ (the default), REG_MULTI_SZ, REG_EXPAND_SZ, REG_DWORD, REG_QWORD,\n"
     "           REG_BINARY, REG_NONE\n"
     "  /s       the character between the texts of a REG_MULTI_SZ; without it: \\0\n"
     "  /d       the data: text, a number (decimal or 0x...), or hexadecimal digits\n"
     "  /f       overwrite without asking\n",
     Add},
    {TEXT("query"),
     "REG QUERY KeyName [/v ValueName | /ve] [/s]\n"
     "\n"
     "  /v  one value; /ve: the default value; neither: all values and subkeys\n"
     "  /s  the key and everything below it\n",
     Query},
    {TEXT("delete"),
     "REG DELETE KeyName [/v ValueName | /ve | /va] [/f]\n"
     "\n"
     "  /v  one value; /ve: the default value; /va: all values of the key; none of them: the key\n"
     "      with everything below it\n"
     "  /f  delete without asking\n",
     Delete},
    {TEXT("import"),
     "REG IMPORT FileName\n"
     "\n"
     "  FileName  a registry file (.reg) of version 5.00; a file with an error changes nothing\n",
     Import},
    {TEXT("export"),
     "REG EXPORT KeyName FileName [/y]\n"
     "\n"
     "  /y  overwrite an existing file without asking\n",
     Export},
};
