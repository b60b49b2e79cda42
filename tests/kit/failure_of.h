// The failure of a call as a text, for tables of expectations.
#pragma once

#include <string>

#include "support/exceptions.h"

namespace kit {

/// Returns the text of the KestException that the call throws, with ": CODE" unless its code is 0, or "no failure".
template <typename Call>
std::string failureOf(Call call) {
    try {
        call();
    } catch (const KestSupport::KestException& e) {
        return e.getText() + (e.getCode() == 0 ? "" : ": " + std::to_string(e.getCode()));
    }
    return "no failure";
}

}  // namespace kit
