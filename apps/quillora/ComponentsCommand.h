#pragma once

#include <iosfwd>

namespace quillora::app {

// Lists the movie exporters that write files: type, subtype, manufacturer, name.
int runComponentsCommand(std::ostream& out);

}  // namespace quillora::app
