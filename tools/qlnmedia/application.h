// The command line of qlnmedia as a whole: its commands, and the options of all of them.
#ifndef TOOLS_QLNMEDIA_APPLICATION_H
#define TOOLS_QLNMEDIA_APPLICATION_H

#include <memory>

namespace CLI {
class App;
}

namespace qlnmedia {

// Nothing is done before it parses a command line.
std::unique_ptr<CLI::App> MakeApplication();

}  // namespace qlnmedia

#endif
