// Anchor of the lumeo-core library, which links every core module; the code
// itself lives in the modules under src/.
namespace lumeo {
const char* coreLibraryName() {
  return "lumeo-core";
}
}  // namespace lumeo
