// Placeholder translation unit so the adapter library always has a source.
namespace jorvane::platform {
int adapterLibraryAnchor() { return 0; }
}  // namespace jorvane::platform
