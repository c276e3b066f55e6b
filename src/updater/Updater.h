#pragma once

// The background check for a newer version of the program: set up once at
// launch, then it checks on its own schedule without blocking anyone.

namespace jorvane {

class Updater {
public:
    virtual ~Updater() = default;
    // Seconds between two background checks.
    virtual void setUpdateCheckInterval(double seconds) = 0;
    // Starts a check now, in the background; tells the user only when there
    // is something to install.
    virtual void checkForUpdatesInBackground() = 0;
};

// For builds without an update feed: checks nothing.
class NullUpdater final : public Updater {
public:
    void setUpdateCheckInterval(double) override {}
    void checkForUpdatesInBackground() override {}
};

}  // namespace jorvane
