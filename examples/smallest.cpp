// The smallest host: finds the library, compiles against it and links with it.
#include <iostream>

#include "tessarine/values/fatal.hpp"

int main(int argc, char**) {
  if (argc < 1) tessarine::fatal("a program has a name");
  std::cout << "linked\n";
}
