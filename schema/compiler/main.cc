// zarnc: compiles schema files into the sources of schema modules.
#include <iostream>

#include "schema/compiler/driver.h"

int main(int count, char** arguments) {
  return zarnc::run(std::vector<std::string>(arguments + 1, arguments + count), std::cout, std::cerr);
}
