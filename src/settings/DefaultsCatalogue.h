#pragma once

// The catalogue of the program's settings: every key the program reads or
// writes is declared here once, with its value type, the value shipped in
// resources/DefaultPreferences.json and its meaning. Readers and writers name
// keys through these constants (`defaults.integerForKey(keys::hotkeyFlags)`),
// never as bare strings, so a misspelt key or a wrong type does not compile.
//
// Modifier masks use the device-independent layout throughout: Shift
// 0x20000, Control 0x40000, Option 0x80000, Command 0x100000. On Linux Command
// is Ctrl, Control is Super and Option is Alt.

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace jorvane::settings {

// A stored value is JSON; a dictionary is a JSON object.
using Value = nlohmann::json;
using Dictionary = nlohmann::json::object_t;

enum class ValueType { Boolean, Integer, String, Dictionary };

std::string_view valueTypeName(ValueType type);  // "a boolean", "an integer", ...

// Whether a stored value can be read as the given type. Besides the exact
// JSON type, a boolean also accepts the integers 0 and 1, and an integer also
// accepts a float with an integral value (5.0), since people editing the file
// write them so. Anything else is the wrong type and reads as absent.
bool conformsTo(const Value& value, ValueType type);

template <typename T>
struct ValueTypeOf;
template <>
struct ValueTypeOf<bool> {
    static constexpr ValueType value = ValueType::Boolean;
};
template <>
struct ValueTypeOf<std::int64_t> {
    static constexpr ValueType value = ValueType::Integer;
};
template <>
struct ValueTypeOf<std::string> {
    static constexpr ValueType value = ValueType::String;
};
template <>
struct ValueTypeOf<Dictionary> {
    static constexpr ValueType value = ValueType::Dictionary;
};

// The name and type of a key, for operations that do not care about the type.
class KeyBase {
public:
    const std::string& name() const { return name_; }
    ValueType type() const { return type_; }

protected:
    KeyBase(std::string name, ValueType type) : name_(std::move(name)), type_(type) {}

private:
    std::string name_;
    ValueType type_;
};

template <typename T>
class Key : public KeyBase {
public:
    Key(std::string name, std::optional<T> shipped, std::string_view meaning)
        : KeyBase(std::move(name), ValueTypeOf<T>::value), shipped_(std::move(shipped)), meaning_(meaning) {}

    // The value DefaultPreferences.json registers, or none: the key then reads
    // as false, 0 or empty until something is stored.
    const std::optional<T>& shipped() const { return shipped_; }
    std::string_view meaning() const { return meaning_; }

private:
    std::optional<T> shipped_;
    std::string_view meaning_;
};

namespace keys {

// Modifier mask of the activation hot key. Ctrl (Command), as the welcome text
// promises "Ctrl + G".
inline const Key<std::int64_t> hotkeyFlags{
    "hotkey_flags", 0x100000,
    "Modifier mask of the activation hot key (Shift 0x20000, Control 0x40000, Option 0x80000, Command 0x100000); "
    "readers mask the event's flags with 0x1E0000 and require equality with this value."};

// Key code of the activation hot key: 5 is G.
inline const Key<std::int64_t> hotkeyKeycode{
    "hotkey_keycode", 5,
    "Virtual key code of the activation hot key, compared with the low 16 bits of the event's key code."};

inline const Key<bool> activateByHotkey{"activate_by_hotkey", true,
                                        "When false, the activation hot key is not looked at at all."};

inline const Key<bool> activateByTitlebar{
    "activate_by_titlebar", true,
    "When true, a click on the path in a file-manager window's title bar opens the address bar."};

// Off by default: two of the extra shortcuts, Ctrl+R and Ctrl+T, are Thunar's
// own Reload and New Tab, which people use all the time; turning this on
// would take them away from Thunar (Ctrl+R would reload our handlers instead
// of the folder, Ctrl+T would open a terminal instead of a tab). The other two
// (Ctrl+Shift+F, Ctrl+Shift+.) are free, but the switch covers all four, so it
// stays an opt-in.
inline const Key<bool> inactiveShortcuts{
    "inactive_shortcuts", false,
    "When true, the extra file-manager shortcuts are handled too: Ctrl+R reloads the handlers, Ctrl+Shift+F "
    "opens the bar of the focused window, Ctrl+T opens a terminal, Ctrl+Shift+. toggles hidden files."};

// 1, the window's current folder: what people expect in an address bar, and
// what Thunar's own location bar shows. The selection alternative is also the
// weaker one on Linux, where Thunar exposes its selection reliably only in
// the Details view.
inline const Key<std::int64_t> activationPathBehaviour{
    "activation_path_behaviour", 1,
    "What the address bar holds when it opens: 1 = the window's current folder; any other value = the "
    "file manager's current selection, or nothing when there is none."};

// Absent until the welcome has been answered, so the first launch greets.
inline const Key<bool> notFirstLaunch{
    "notfirstlaunch", std::nullopt,
    "False until the welcome alert has been answered with its first button; then true."};

inline const Key<std::string> version{"version", std::nullopt,
                                      "The running program's version, written at every launch for the about window."};

// Empty in the shipped file: a build that publishes an appcast sets its URL
// there, or the user in settings.json. Empty means no update check.
inline const Key<std::string> updateFeedUrl{
    "update_feed_url", std::string{},
    "URL of the appcast feed the background update check reads; empty turns the check off."};

// Three hours between background checks.
inline const Key<std::int64_t> updateCheckInterval{
    "update_check_interval", 10800, "Seconds between background update checks; 0 or less checks only at launch."};

// On: jumping to a visited folder by a few typed words is the point of the
// history, and it stays on this machine, in a file the user can read.
inline const Key<bool> rememberVisitedFolders{
    "remember_visited_folders", true,
    "When true, the folders file-manager windows show are recorded, so that the bar can offer them by a few "
    "words of their path; when false, nothing is recorded."};

// Every recorder with an autosave name persists its combination under
// "HotkeyRecorder <autosave name>"; see HotkeyRecorderEntry for the fields.
inline constexpr std::string_view hotkeyRecorderPrefix = "HotkeyRecorder ";
Key<Dictionary> hotkeyRecorder(std::string_view autosaveName);

// Fields of a recorder's dictionary.
namespace recorder {
inline constexpr std::string_view keyCode = "keyCode";
inline constexpr std::string_view modifierFlags = "modifierFlags";
inline constexpr std::string_view modifiers = "modifiers";
inline constexpr std::string_view keyChars = "keyChars";
inline constexpr std::string_view keyCharsIgnoringModifiers = "keyCharsIgnoringModifiers";
}  // namespace recorder

}  // namespace keys

// One row of the catalogue, type-erased, for checks over all keys.
struct KeyInfo {
    std::string_view name;
    ValueType type;
    std::optional<Value> shipped;
    std::string_view meaning;
};

// Every fixed key, in declaration order. Recorder keys are dynamic and not
// listed; typeOfKey() knows them by their prefix.
const std::vector<KeyInfo>& catalogue();

// The type a stored value must have under `name`, or none for a key the
// program does not know (such values are kept but never read).
std::optional<ValueType> typeOfKey(std::string_view name);

// The values DefaultPreferences.json is expected to hold: every catalogue key
// that has a shipped value.
Dictionary shippedDefaults();

// A recorder's persisted combination. "keyCode" is a signed 16-bit key code
// (0 when nothing is stored); "modifierFlags" the modifier layout, "modifiers"
// the same combination in the recorder layout; the characters only when the
// recorder holds the characters of a real key press.
struct HotkeyRecorderEntry {
    std::int16_t keyCode = 0;
    std::optional<std::uint64_t> modifierFlags;
    std::optional<std::uint64_t> modifiers;
    std::optional<std::string> keyChars;
    std::optional<std::string> keyCharsIgnoringModifiers;

    Dictionary toDictionary() const;
    // Fields that are missing or of the wrong type (or out of range) are left
    // at their empty values; `problems`, when given, receives a line for each
    // field that was present but unusable.
    static HotkeyRecorderEntry fromDictionary(const Dictionary& dictionary,
                                              std::vector<std::string>* problems = nullptr);

    bool operator==(const HotkeyRecorderEntry&) const = default;
};

}  // namespace jorvane::settings
