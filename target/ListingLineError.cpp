#include "target/ListingLineError.h"

namespace vessa::target {

ListingLineError::ListingLineError(const util::str::Exception& cause, std::string line, std::size_t number)
    : util::str::Exception(cause.why()), line_(std::move(line)), number_(number) {}

}  // namespace vessa::target
