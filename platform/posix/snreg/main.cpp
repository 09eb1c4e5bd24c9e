#include <shlwapi.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <stdexcept>

#include "common/format.h"
#include "common/hex.h"
#include "reg_file.h"
#include "registry_access.h"

namespace {

constexpr char kUsage[] =
    "snreg add KEY [/v NAME | /ve] [/t TYPE] [/d DATA] [/f]\n"
    "snreg query KEY [/v NAME | /ve] [/s]\n"
    "snreg delete KEY [/v NAME | /ve | /va] [/f]\n"
    "snreg import FILE\n"
    "snreg export KEY FILE [/y]\n"
    "\n"
    "KEY begins with HKLM, HKCU, HKCR, HKU or a long name. /ve: the default value, /va: all "
    "values,\n"
    "/s: the whole tree. TYPE: REG_SZ (default), REG_EXPAND_SZ, REG_MULTI_SZ (\\0 between its\n"
    "texts), REG_DWORD, REG_QWORD, REG_BINARY, REG_NONE. What exists is overwritten with /f or /y\n"
    "alone, and nothing is deleted without /f. The exit code is 0 on success, else 1.\n";

// Why a command ends without having done its work.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The words behind a command's name.
struct Words {
    std::vector<WString> operands;
    std::map<WString, WString, LessIgnoringCase> switches;  // with the arguments of "v", "t", "d"

    bool Has(const WString& name) const { return switches.contains(name); }
    WString ArgumentOf(const WString& name, const WString& absent) const {
        const auto found = switches.find(name);
        return found == switches.end() ? absent : found->second;
    }
    KeyName Key() const {
        auto key = ParseKeyName(operands[0], RootForms::kLongAndShort);
        if (!key) throw Failure("Invalid key name.");
        return *std::move(key);
    }
    // The value that /v or /ve names.
    std::optional<WString> ValueName() const {
        if (Has(TEXT("ve"))) return WString();
        return Has(TEXT("v")) ? std::optional(switches.at(TEXT("v"))) : std::nullopt;
    }
    void Demand(const WString& permission, const std::string& what) const {
        if (Has(permission)) return;
        throw Failure(what + ": give /" + WideToUtf8(permission) + " to go on.");
    }
};

std::string MessageOf(LSTATUS code) {
    if (code == ERROR_FILE_NOT_FOUND) {
        return "The system was unable to find the specified registry key or value.";
    }
    if (code == ERROR_ACCESS_DENIED) return "Access is denied.";
    return "Error accessing the registry (" + std::to_string(code) + ").";
}

WString Below(const WString& fullName, const WString& subkey) {
    return fullName + TEXT("\\") + subkey;
}

// Types and data as text.

struct Type {
    DWORD type;
    const WCHAR* name;
    std::size_t numberSize;  // in bytes; 0 for a type that is no number
};

constexpr Type kTypes[] = {
    {REG_NONE, TEXT("REG_NONE"), 0},           {REG_SZ, TEXT("REG_SZ"), 0},
    {REG_EXPAND_SZ, TEXT("REG_EXPAND_SZ"), 0}, {REG_BINARY, TEXT("REG_BINARY"), 0},
    {REG_DWORD, TEXT("REG_DWORD"), 4},         {REG_MULTI_SZ, TEXT("REG_MULTI_SZ"), 0},
    {REG_QWORD, TEXT("REG_QWORD"), 8},
};

// A number in hexadecimal, texts with "\0" between them, anything else - also data of the wrong
// size - as hexadecimal digits.
WString DataText(DWORD type, const std::vector<BYTE>& data) {
    const auto* const known = std::ranges::find(kTypes, type, &Type::type);
    if (known != std::end(kTypes) && known->numberSize == data.size() && !data.empty()) {
        std::uint64_t number = 0;
        std::memcpy(&number, data.data(), data.size());
        return FormatWide(TEXT("0x%I64x"), number);
    }
    if (type != REG_SZ && type != REG_EXPAND_SZ && type != REG_MULTI_SZ) {
        return Utf8ToWide(BytesToHex(data.data(), data.size()));
    }
    WString units(data.size() / sizeof(WCHAR), WCHAR{0});
    std::copy_n(data.begin(), units.size() * sizeof(WCHAR), reinterpret_cast<BYTE*>(units.data()));
    if (type != REG_MULTI_SZ) return units.substr(0, units.find(WCHAR{0}));
    WString text;
    for (const WString& part : SplitText(units, WStringView(TEXT("\0"), 1))) {
        text += (text.empty() ? TEXT("") : TEXT("\\0")) + part;
    }
    return text;
}

std::vector<BYTE> ListData(WStringView text) {
    constexpr WStringView kSeparator = TEXT("\\0");
    std::vector<BYTE> data;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(kSeparator), text.size());
        const std::vector<BYTE> part = TextData(text.substr(0, end));
        if (end > 0) data.insert(data.end(), part.begin(), part.end());
        text.remove_prefix(std::min(end + kSeparator.size(), text.size()));
    }
    data.insert(data.end(), sizeof(WCHAR), 0);
    return data;
}

// The data that a text stands for; nothing when it does not fit the type.
std::optional<std::vector<BYTE>> DataOfText(const Type& type, const WString& text) {
    if (type.type == REG_SZ || type.type == REG_EXPAND_SZ) return TextData(text);
    if (type.type == REG_MULTI_SZ) return ListData(text);
    std::string digits = WideToUtf8(text);
    std::vector<BYTE> data(type.numberSize);
    if (data.empty()) {
        const bool isHex = digits.find_first_not_of("0123456789abcdefABCDEF") == digits.npos;
        if (digits.size() % 2 != 0) digits.insert(digits.begin(), '0');
        return isHex && HexToBytes(digits, data) ? std::optional(data) : std::nullopt;
    }
    const bool isHex = digits.starts_with("0x") || digits.starts_with("0X");
    const char* const end = digits.data() + digits.size();
    std::uint64_t number = 0;
    const auto [stop, error] =
        std::from_chars(digits.data() + (isHex ? 2 : 0), end, number, isHex ? 16 : 10);
    if (error != std::errc{} || stop != end) return std::nullopt;
    if (data.size() == sizeof(DWORD) && number > UINT32_MAX) return std::nullopt;
    std::memcpy(data.data(), &number, data.size());
    return data;
}

// The commands.

void Add(const Words& words) {
    const KeyName keyName = words.Key();
    const WString typeName = words.ArgumentOf(TEXT("t"), TEXT("REG_SZ"));
    const auto* const type = std::ranges::find_if(
        kTypes, [&](const Type& known) { return EqualIgnoringCase(known.name, typeName); });
    if (type == std::end(kTypes)) throw Failure("Unknown type.");
    const auto data = DataOfText(*type, words.ArgumentOf(TEXT("d"), {}));
    if (!data) throw Failure("The data does not fit the type.");
    const UniqueRegKey key = CreateKey(keyName.root, keyName.path);
    auto name = words.ValueName();
    if (!name && (words.Has(TEXT("t")) || words.Has(TEXT("d")))) name = WString();
    if (!name) return;
    if (HasValue(key.get(), *name)) words.Demand(TEXT("f"), "The value exists");
    SetValue(key.get(), {*name, type->type, *data});
}

void Print(const WString& line) {
    std::cout << WideToUtf8(line) << '\n';
}

void PrintKey(const WString& fullName, const std::vector<RegValue>& values) {
    Print(TEXT("\n") + fullName);
    for (const RegValue& value : values) {
        const auto* const type = std::ranges::find(kTypes, value.type, &Type::type);
        Print(TEXT("    ") + (value.name.empty() ? TEXT("(Default)") : value.name) + TEXT("    ") +
              (type == std::end(kTypes) ? FormatWide(TEXT("0x%x"), value.type) : type->name) +
              TEXT("    ") + DataText(value.type, value.data));
    }
}

// Prints the values - only the named one, if any - of a key, and with `tree` of those below it.
// Returns how many there are.
std::size_t QueryKey(HKEY key, const WString& fullName, const std::optional<WString>& name,
                     bool tree) {
    std::vector<RegValue> values = ValuesOf(key);
    std::erase_if(values, [&](const RegValue& value) {
        return name && !EqualIgnoringCase(value.name, *name);
    });
    if (!name || !values.empty()) PrintKey(fullName, values);
    std::size_t found = values.size();
    for (const WString& subkey : SubkeysOf(key)) {
        const WString below = Below(fullName, subkey);
        if (tree) found += QueryKey(OpenKey(key, subkey, KEY_READ).get(), below, name, tree);
        if (!tree && !name) Print(below);
    }
    return found;
}

void Query(const Words& words) {
    const KeyName keyName = words.Key();
    const UniqueRegKey key = OpenKey(keyName.root, keyName.path, KEY_READ);
    const auto name = words.ValueName();
    const std::size_t found = QueryKey(key.get(), keyName.full, name, words.Has(TEXT("s")));
    if (name && found == 0) throw RegistryError{ERROR_FILE_NOT_FOUND};
    Print({});
}

LSTATUS DeleteTree(const KeyName& key) {
    return static_cast<LSTATUS>(SHDeleteKeyW(key.root, key.path.c_str()));
}

void Delete(const Words& words) {
    const KeyName keyName = words.Key();
    const UniqueRegKey key = OpenKey(keyName.root, keyName.path, KEY_READ);
    words.Demand(TEXT("f"), "Nothing is deleted");
    const auto name = words.ValueName();
    if (!name && !words.Has(TEXT("va"))) {
        Check(DeleteTree(keyName));
        return;
    }
    const UniqueRegKey writable = OpenKey(keyName.root, keyName.path, KEY_SET_VALUE);
    if (name) return Check(RegDeleteValueW(writable.get(), name->c_str()));
    for (const RegValue& value : ValuesOf(key.get())) {
        Check(RegDeleteValueW(writable.get(), value.name.c_str()));
    }
}

std::string ReadFile(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(stream)), {});
    if (stream.bad() || !stream.is_open()) throw Failure("The file cannot be read.");
    return bytes;
}

void Apply(const std::vector<RegOperation>& operations) {
    UniqueRegKey key;
    const auto orMissing = [](LSTATUS result) {
        if (result != ERROR_FILE_NOT_FOUND) Check(result);
    };
    for (const RegOperation& operation : operations) {
        switch (operation.action) {
            case RegAction::kOpenKey:
                key = CreateKey(operation.key.root, operation.key.path);
                break;
            case RegAction::kDeleteKey:
                orMissing(DeleteTree(operation.key));
                break;
            case RegAction::kSetValue:
                SetValue(key.get(), operation.value);
                break;
            case RegAction::kDeleteValue:
                orMissing(RegDeleteValueW(key.get(), operation.value.name.c_str()));
                break;
        }
    }
}

void Import(const Words& words) {
    const std::string file = WideToUtf8(words.operands[0]);
    try {
        Apply(ParseRegFile(ReadFile(file)));
    } catch (const RegFileError& error) {
        throw Failure(file + ", line " + std::to_string(error.line) + ": " + error.what +
                      ". Nothing was imported.");
    }
}

WString TreeText(HKEY key, const WString& fullName) {
    const std::vector<RegValue> values = ValuesOf(key);
    const std::vector<WString> subkeys = SubkeysOf(key);
    if (!std::ranges::all_of(values, FitsRegFile, &RegValue::name) ||
        !std::ranges::all_of(subkeys, FitsRegFile)) {
        throw Failure("A name below " + WideToUtf8(fullName) + " does not fit into a file.");
    }
    WString text = RegKeyText(fullName, values);
    for (const WString& subkey : subkeys) {
        text += TreeText(OpenKey(key, subkey, KEY_READ).get(), Below(fullName, subkey));
    }
    return text;
}

void Export(const Words& words) {
    const KeyName keyName = words.Key();
    const UniqueRegKey key = OpenKey(keyName.root, keyName.path, KEY_READ);
    const WString text = RegFileStart() + TreeText(key.get(), keyName.full);
    const std::string file = WideToUtf8(words.operands[1]);
    if (std::filesystem::exists(file)) words.Demand(TEXT("y"), "The file exists");
    std::ofstream stream(file, std::ios::binary | std::ios::trunc);
    stream << RegFileBytes(text);
    if (!stream.flush()) throw Failure("The file cannot be written.");
}

struct Command {
    const WCHAR* name;
    std::size_t operands;
    std::vector<WString> switches;
    void (*run)(const Words& words);
};

const std::vector<Command> kCommands = {
    {TEXT("add"), 1, {TEXT("v"), TEXT("ve"), TEXT("t"), TEXT("d"), TEXT("f")}, Add},
    {TEXT("query"), 1, {TEXT("v"), TEXT("ve"), TEXT("s")}, Query},
    {TEXT("delete"), 1, {TEXT("v"), TEXT("ve"), TEXT("va"), TEXT("f")}, Delete},
    {TEXT("import"), 1, {}, Import},
    {TEXT("export"), 2, {TEXT("y")}, Export},
};

Words ParseWords(const Command& command, const std::vector<WString>& given) {
    const auto wrong = [] { return Failure(std::string("Invalid syntax.\n\n") + kUsage); };
    Words words;
    for (auto word = given.begin(); word != given.end(); ++word) {
        // A path of a file may begin with a slash, too.
        if (words.operands.size() < command.operands) {
            words.operands.push_back(*word);
            continue;
        }
        const auto known = std::ranges::find_if(command.switches, [&](const WString& name) {
            return EqualIgnoringCase(*word, TEXT("/") + name) ||
                   EqualIgnoringCase(*word, TEXT("-") + name);
        });
        if (known == command.switches.end()) throw wrong();
        const bool hasArgument = *known == TEXT("v") || *known == TEXT("t") || *known == TEXT("d");
        if (hasArgument && ++word == given.end()) throw wrong();
        if (!words.switches.emplace(*known, hasArgument ? *word : WString()).second) throw wrong();
    }
    const bool isAmbiguous =
        words.Has(TEXT("v")) + words.Has(TEXT("ve")) + words.Has(TEXT("va")) > 1;
    if (isAmbiguous || words.operands.size() < command.operands) throw wrong();
    return words;
}

void Run(const std::vector<WString>& words) {
    const WString name = words.empty() ? WString(TEXT("/?")) : words[0];
    for (const Command& command : kCommands) {
        if (!EqualIgnoringCase(name, command.name)) continue;
        command.run(ParseWords(command, {words.begin() + 1, words.end()}));
        if (command.run != Query) std::cout << "The operation completed successfully.\n";
        return;
    }
    if (name != TEXT("/?")) throw Failure(std::string("Invalid syntax.\n\n") + kUsage);
    std::cout << kUsage;
}

}  // namespace

extern "C" int wmain(int argc, WCHAR** argv) {
    std::string error;
    try {
        Run({argv + 1, argv + argc});
        return std::cout.flush() ? 0 : 1;
    } catch (const RegistryError& failure) {
        error = MessageOf(failure.code);
    } catch (const std::exception& failure) {
        error = failure.what();
    }
    std::cout << std::flush;
    std::cerr << "ERROR: " << error << '\n';
    return 1;
}
