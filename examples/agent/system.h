// What differs between the systems besides the figures (machine_figures.h). The folder of each system implements it.
#pragma once

#include <string>

namespace agent {

/// The folder of this program; empty when the system does not tell it.
std::string programFolder();

}  // namespace agent
