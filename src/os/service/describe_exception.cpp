#include "os/service/describe_exception.h"

#include <exception>

#include "support/exceptions.h"

namespace KestSupport::internal {

std::string describeException() {
    try {
        throw;
    } catch (const KestException& failure) {
        return failure.getText() + " (code " + std::to_string(failure.getCode()) + ")";
    } catch (const std::exception& failure) {
        return failure.what();
    } catch (...) {
        return "an exception of another type";
    }
}

}  // namespace KestSupport::internal
