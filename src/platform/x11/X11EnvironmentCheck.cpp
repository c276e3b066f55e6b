#include "platform/x11/X11EnvironmentCheck.h"

#include "platform/x11/X11EventTap.h"

namespace jorvane::x11 {

std::vector<std::string> X11EnvironmentCheck::missingRequirements() {
    const X11InputSupport support = checkX11InputSupport(displayName_);
    if (!support.displayReachable) return {"an X display"};
    std::vector<std::string> missing;
    if (!support.xinput22) missing.emplace_back("XInput 2.2");
    if (!support.xtest) missing.emplace_back("the XTEST extension");
    return missing;
}

}  // namespace jorvane::x11
