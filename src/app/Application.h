#pragma once

// The program as an application of the desktop: it can come to the front,
// step back, and end. Main thread only.

namespace jorvane {

class Application {
public:
    virtual ~Application() = default;
    // Makes the program the active one, even over the active application.
    virtual void activateIgnoringOtherApps() = 0;
    // Gives the front back to whoever had it.
    virtual void deactivate() = 0;
    // Ends the program once the current main-loop turn is over (it returns).
    virtual void terminate() = 0;
};

}  // namespace jorvane
