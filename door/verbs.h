// The table of all that a script can say.
#pragma once

#include "door/scpi_session.h"

#include <span>
#include <string>

std::span<const Verb> verbTable();

// A new client: what the one before has chosen is forgotten.
void forgetChoices();

// The table as it stands in the guide: one line of Markdown each.
std::string verbTableText();
