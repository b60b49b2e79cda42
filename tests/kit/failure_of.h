// What a call fails with, as a text that a table of expectations can hold.
#pragma once

#include <string>

#include "support/exceptions.h"

namespace kit {

/// The text of the KestException of code 0 that the call throws, or a remark that it does not throw one.
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
