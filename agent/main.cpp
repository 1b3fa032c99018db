#include "agent/commands/CommandLine.h"

int
main(int argc, char** argv) {
   return L3TunnelAgent::runCommandLine(argc, argv);
}
