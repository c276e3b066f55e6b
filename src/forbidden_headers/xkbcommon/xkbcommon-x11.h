#error \
    "The core is platform-neutral: use a port, and put xkbcommon/xkbcommon-x11.h code in an adapter under src/platform or src/ui."
