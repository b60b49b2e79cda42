// The failure of a call as a text, for tables of expectations.
#pragma once

#include <string>

#include "support/exceptions.h"

namespace kit {

/// Returns the text of the KestException that the call throws, or that its code is not 0, or that there is none.
template <typename Call>
std::string failureOf(Call call) {
    try {
        call();
    } catch (const KestSupport::KestException& e) {
        return e.getCode() == 0 ? e.getText() : "another code than 0";
    }
    return "no failure";
}

}  // namespace kit
