#error "The core is platform-neutral: use a port, and put xcb/xcb.h code in an adapter under src/platform or src/ui."
