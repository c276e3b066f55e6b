#pragma once

// Where the values of the defaults domain are kept between runs: a JSON file
// in the application (FileDefaultsStorage), memory in tests. UserDefaults owns
// one and calls it under its own lock, one call at a time.

#include "settings/DefaultsCatalogue.h"

#include <memory>
#include <string>
#include <vector>

namespace jorvane::settings {

class DefaultsStorage {
public:
    struct Loaded {
        Dictionary values;
        // Things the user should hear about (a corrupt file set aside, an
        // unreadable file); the values are still usable.
        std::vector<std::string> warnings;
    };
    struct Saved {
        bool ok = true;
        std::string error;  // why the values were not saved, when !ok
    };

    virtual ~DefaultsStorage() = default;

    // The values stored now. A missing store gives no values and no warning.
    virtual Loaded load() = 0;
    // Replaces the stored values with these, all or nothing.
    virtual Saved save(const Dictionary& values) = 0;
    // Whether someone else changed the store since this object last loaded or
    // saved it. Called often, so it must be cheap (a stat for a file).
    virtual bool changedSinceLastSync() = 0;
    // Names the store in messages ("/home/ann/.config/jorvane/settings.json").
    virtual std::string description() const { return "the settings store"; }

    // Held around a read, merge and write, so that two programs saving the
    // same store at once each keep the keys they changed. Stores that only
    // this process uses need none.
    class UpdateLock {
    public:
        virtual ~UpdateLock() = default;
    };
    virtual std::unique_ptr<UpdateLock> lockForUpdate() { return nullptr; }
};

}  // namespace jorvane::settings
