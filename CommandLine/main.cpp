#include <CommandLine/Program.h>
#include <CommandLine/SystemMachine.h>

int main(int argc, char** argv) {
  tandrell::SystemMachine machine;
  return tandrell::runProgram({argv + 1, argv + argc}, machine, tandrell::makeLink);
}
