// The table of all that a script can say.
#pragma once

#include "door/scpi_session.h"

#include <span>
#include <string>

std::span<const Verb> verbTable();

// The table as it stands in the guide: one line of Markdown each.
std::string verbTableText();
