#include "settings/DefaultsCatalogue.h"

#include <cmath>
#include <limits>

namespace jorvane::settings {

std::string_view valueTypeName(ValueType type) {
    switch (type) {
        case ValueType::Boolean: return "a boolean";
        case ValueType::Integer: return "an integer";
        case ValueType::String: return "a string";
        case ValueType::Dictionary: return "an object";
    }
    return "a value";
}

bool conformsTo(const Value& value, ValueType type) {
    switch (type) {
        case ValueType::Boolean:
            if (value.is_boolean()) return true;
            if (value.is_number_integer()) {
                // Both signed and unsigned JSON integers compare safely here.
                return value == 0 || value == 1;
            }
            return false;
        case ValueType::Integer:
            if (value.is_number_unsigned()) {
                return value.get<std::uint64_t>() <=
                       static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
            }
            if (value.is_number_integer()) return true;
            if (value.is_number_float()) {
                const double d = value.get<double>();
                // 2^63 is exactly representable; anything at or past it is out of range.
                return std::isfinite(d) && std::trunc(d) == d && d >= -9223372036854775808.0 &&
                       d < 9223372036854775808.0;
            }
            return false;
        case ValueType::String: return value.is_string();
        case ValueType::Dictionary: return value.is_object();
    }
    return false;
}

namespace keys {

Key<Dictionary> hotkeyRecorder(std::string_view autosaveName) {
    std::string name(hotkeyRecorderPrefix);
    name += autosaveName;
    return Key<Dictionary>(std::move(name), std::nullopt,
                           "Persisted key combination of the recorder with this autosave name.");
}

}  // namespace keys

namespace {

template <typename T>
KeyInfo info(const Key<T>& key) {
    std::optional<Value> shipped;
    if (key.shipped()) shipped = Value(*key.shipped());
    return KeyInfo{key.name(), key.type(), std::move(shipped), key.meaning()};
}

}  // namespace

const std::vector<KeyInfo>& catalogue() {
    // clang-format off
    static const std::vector<KeyInfo> all = {
        info(keys::hotkeyFlags),       info(keys::hotkeyKeycode),  info(keys::activateByHotkey),
        info(keys::activateByTitlebar), info(keys::inactiveShortcuts), info(keys::activationPathBehaviour),
        info(keys::notFirstLaunch),    info(keys::version),        info(keys::updateFeedUrl),
        info(keys::updateCheckInterval), info(keys::rememberVisitedFolders),
    };
    // clang-format on
    return all;
}

std::optional<ValueType> typeOfKey(std::string_view name) {
    for (const KeyInfo& row : catalogue()) {
        if (row.name == name) return row.type;
    }
    if (name.starts_with(keys::hotkeyRecorderPrefix)) return ValueType::Dictionary;
    return std::nullopt;
}

Dictionary shippedDefaults() {
    Dictionary values;
    for (const KeyInfo& row : catalogue()) {
        if (row.shipped) values.emplace(std::string(row.name), *row.shipped);
    }
    return values;
}

Dictionary HotkeyRecorderEntry::toDictionary() const {
    namespace f = keys::recorder;
    Dictionary d;
    d.emplace(f::keyCode, keyCode);
    if (modifierFlags) d.emplace(f::modifierFlags, *modifierFlags);
    if (modifiers) d.emplace(f::modifiers, *modifiers);
    if (keyChars) d.emplace(f::keyChars, *keyChars);
    if (keyCharsIgnoringModifiers) d.emplace(f::keyCharsIgnoringModifiers, *keyCharsIgnoringModifiers);
    return d;
}

HotkeyRecorderEntry HotkeyRecorderEntry::fromDictionary(const Dictionary& dictionary,
                                                        std::vector<std::string>* problems) {
    namespace f = keys::recorder;
    HotkeyRecorderEntry entry;
    auto complain = [&](std::string_view field, std::string_view expected) {
        if (problems) problems->push_back('"' + std::string(field) + "\" should be " + std::string(expected));
    };
    auto find = [&](std::string_view field) -> const Value* {
        auto it = dictionary.find(std::string(field));
        return it == dictionary.end() ? nullptr : &it->second;
    };
    if (const Value* v = find(f::keyCode)) {
        if (conformsTo(*v, ValueType::Integer) && v->get<double>() >= std::numeric_limits<std::int16_t>::min() &&
            v->get<double>() <= std::numeric_limits<std::int16_t>::max()) {
            entry.keyCode = static_cast<std::int16_t>(v->get<std::int64_t>());
        } else {
            complain(f::keyCode, "an integer from -32768 to 32767");
        }
    }
    auto unsignedField = [&](std::string_view field, std::optional<std::uint64_t>& out) {
        const Value* v = find(field);
        if (!v) return;
        if (v->is_number_unsigned() || (conformsTo(*v, ValueType::Integer) && v->get<double>() >= 0)) {
            out =
                v->is_number_unsigned() ? v->get<std::uint64_t>() : static_cast<std::uint64_t>(v->get<std::int64_t>());
        } else {
            complain(field, "an unsigned integer");
        }
    };
    unsignedField(f::modifierFlags, entry.modifierFlags);
    unsignedField(f::modifiers, entry.modifiers);
    auto stringField = [&](std::string_view field, std::optional<std::string>& out) {
        const Value* v = find(field);
        if (!v) return;
        if (v->is_string()) {
            out = v->get<std::string>();
        } else {
            complain(field, "a string");
        }
    };
    stringField(f::keyChars, entry.keyChars);
    stringField(f::keyCharsIgnoringModifiers, entry.keyCharsIgnoringModifiers);
    return entry;
}

}  // namespace jorvane::settings
