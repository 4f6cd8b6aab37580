// Placeholder so that the store module links before its first unit lands.
namespace lumeo {}
