// Entry of the lumeo command.
#include "cli_app.h"

int main(int argc, char** argv) {
  lumeo::cli::CliApp app;
  return app.run(argc, argv);
}
