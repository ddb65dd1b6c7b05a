// What every companion writer throws: the file it could not make and why,
// said so that the user knows what to do.
#pragma once

#include <stdexcept>
#include <string>

namespace quillora::publish {

class PublishError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace quillora::publish
