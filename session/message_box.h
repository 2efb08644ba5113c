// A modal question or notice; the log of the day has its text when it opens, and its answer.
#pragma once

#include "platform/message_box.h"

#include <string>
#include <vector>

// In this object's block nobody is there to answer, since a script has begun what asks: no box
// opens, its text goes into `heard` and the log of the day, and its answer is None. But where the
// operator does something meanwhile (OperatorActs), his boxes open.
class NobodyToAsk {
public:
    explicit NobodyToAsk(std::vector<std::string>& heard);
    ~NobodyToAsk();
    NobodyToAsk(const NobodyToAsk&) = delete;
    NobodyToAsk& operator=(const NobodyToAsk&) = delete;

private:
    std::vector<std::string>* const before;
};

class OperatorActs {
public:
    OperatorActs();
    ~OperatorActs();
    OperatorActs(const OperatorActs&) = delete;
    OperatorActs& operator=(const OperatorActs&) = delete;

private:
    std::vector<std::string>* const before;
};

// Blocks until answered; None when the box could not be shown. `owner` may be null.
BoxAnswer showMessageBox(WindowHandle owner, const char* text, const char* caption,
                         BoxButtons buttons);
