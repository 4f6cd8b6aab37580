// Entry of the lumeo command: parses the command line and runs one command.
#include <iostream>

int main() {
  std::cout << "lumeo " << LUMEO_VERSION << "\n";
  return 0;
}
