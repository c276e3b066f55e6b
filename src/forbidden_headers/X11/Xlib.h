#error "The core is platform-neutral: use a port, and put X11/Xlib.h code in an adapter under src/platform or src/ui."
