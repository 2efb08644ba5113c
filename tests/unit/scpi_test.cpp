// The instruments' language: texts, errors, registers, and what bad clients send.
#include "door/scpi_session.h"

#include <gtest/gtest.h>

namespace {

double step = 0.0;
bool underWay = false;
std::string done_;

const std::vector<Verb> table = {
    {"*OPC?",
     {},
     needsNothing,
     [](const Call&) {
         Reply reply = said("1");
         reply.waits = true;
         return reply;
     },
     ""},
    {"*WAI", {}, needsNothing, [](const Call&) { return Reply{.waits = true}; }, ""},
    {"*STB?",
     {},
     needsNothing,
     [](const Call& call) { return said(std::to_string(call.session.status.byte(false))); },
     ""},
    {"SYSTem:ERRor[:NEXT]?",
     {},
     needsNothing,
     [](const Call& call) { return said(call.session.status.nextError()); },
     ""},
    {"SCAN:STEP",
     {{"step", Argument::Kind::Number, "um", 0.1, 40}},
     needsIdle,
     [](const Call& call) {
         step = call.numbers[0];
         return done();
     },
     ""},
    {"SCAN:STEP?", {}, needsNothing, [](const Call&) { return said(std::to_string(step)); }, ""},
    {"SCAN:AREA",
     {{"left", Argument::Kind::Number, "um", -100, 100},
      {"bottom", Argument::Kind::Number, "um", -100, 100, false, true}},
     needsNothing,
     [](const Call& call) {
         done_ += "area" + std::to_string(call.given);
         return done();
     },
     ""},
    {"SCAN:STOP",
     {},
     passesWaits,
     [](const Call&) {
         done_ += "stop";
         underWay = false;
         return done();
     },
     ""},
    {"LASer[:STATe]",
     {{"on", Argument::Kind::Switch}},
     needsNothing,
     [](const Call& call) {
         done_ += call.isOn(0) ? "on" : "off";
         return done();
     },
     ""},
    {"LIST:LOAD",
     {{"name", Argument::Kind::Text}},
     needsNothing,
     [](const Call& call) {
         done_ += "<" + call.texts[0] + ">";
         return done();
     },
     ""},
    {"DATA?",
     {},
     needsNothing,
     [](const Call&) { return said(blockOf(std::string("\n\0;", 3))); },
     ""},
};

class Scpi : public testing::Test {
protected:
    void SetUp() override {
        step = 0.0;
        underWay = false;
        done_.clear();
    }
    std::string send(std::string_view bytes) {
        session.receive(bytes);
        while (session.step()) {
        }
        return std::exchange(session.output, {});
    }
    std::string error() { return send("SYST:ERR?\n"); }

    ScpiSession session{{.verbs = table, .isUnderWay = [] { return underWay; }}};
};

} // namespace

TEST_F(Scpi, UnderstandsLongAndShortWordsPathsAndUnits) {
    for (const char* text : {"SCAN:STEP 2\n", ":scan:step 2 UM\r\n", "Scan1:Step 0.002mm\n",
                             "SCAN:AREA 1,2;STEP +2.0E0\n", "SCAN:AREA 1;*STB?;STEP 2;\n",
                             "  SCAN:STEP\t2000 nm  \n"}) {
        step = 0.0;
        send(text);
        EXPECT_NEAR(step, 2.0, 1e-9) << text;
        EXPECT_EQ(error(), "0,\"No error\"\n") << text;
    }
    EXPECT_EQ(send("SCAN:STEP MAX;STEP?;:SCAN:STEP MIN;STEP?\n"), "40.000000;0.100000\n");
    send("LAS ON;:LASer:STATe 0;:LIST:LOAD 'a;b,\"c';LOAD \"it \"\"is\"\"\"\n");
    EXPECT_EQ(done_, "area2area1onoff<a;b,\"c><it \"is\">");
}

TEST_F(Scpi, SaysWhatIsWrongAndCarriesOutNothingOfIt) {
    const std::pair<const char*, const char*> cases[] = {
        {"SCAN:STEPS 2", "-113,\"Undefined header;SCAN:STEPS\""},
        {"SCAN:STE 2", "-113,\"Undefined header;SCAN:STE\""},
        {"STEP 2", "-113,\"Undefined header;STEP\""},
        {"SCAN2:STEP 2", "-114,\"Header suffix out of range;SCAN2:STEP\""},
        {"SCAN:STEP", "-109,\"Missing parameter;SCAN:STEP <step>\""},
        {"SCAN:STEP 2,3", "-108,\"Parameter not allowed;SCAN:STEP <step>\""},
        {"SCAN:STEP two", "-104,\"Data type error;\"\"two\"\" is no number\""},
        {"SCAN:STEP nan", "-104,\"Data type error;\"\"nan\"\" is no number\""},
        {"SCAN:STEP 2 V", "-131,\"Invalid suffix;V, the unit is um\""},
        {"SCAN:STEP 99", "-222,\"Data out of range;step 0.1 to 40 um\""},
        {"SCAN:STEP 1e999", "-222,\"Data out of range;\"\"1e999\"\"\""},
        {"SCAN:STEP #14abcd", "-168,\"Block data not allowed;no command takes a block\""},
        {"LIST:LOAD \"a", "-151,\"Invalid string data;a quote does not end\""},
        {"LIST:LOAD a", "-104,\"Data type error;a text stands in quotes\""},
        {";SCAN:STEP 2", "-102,\"Syntax error;a command is missing\""},
        {"SCAN::STEP 2", "-102,\"Syntax error;SCAN::STEP\""},
        {"SCAN:STEP? 2", "-108,\"Parameter not allowed;SCAN:STEP?\""},
        {"SCAN:STEP,2", "-102,\"Syntax error;at \"\",\"\"\""},
    };
    for (const auto& [text, wanted] : cases) {
        EXPECT_EQ(send(std::string(text) + ";:SCAN:AREA 1\n"), "") << text;
        EXPECT_EQ(error(), std::string(wanted) + "\n") << text;
        const bool execution = std::string(wanted).starts_with("-2");
        EXPECT_EQ(done_, execution ? "area1" : "") << text; // what cannot be read ends the message
        EXPECT_EQ(step, 0.0) << text;
        done_.clear();
    }
    send(std::string("SCAN:STEP 2\0 1\n", 15));
    EXPECT_EQ(error(), "-101,\"Invalid character\"\n");
    EXPECT_EQ(send("*STB?\n"), "0\n");
}

TEST_F(Scpi, KeepsTwentyErrorsAndTheirBits) {
    for (int i = 0; i < 30; ++i) send("NONSENSE\n");
    for (int i = 0; i < 19; ++i) EXPECT_EQ(error().substr(0, 4), "-113");
    EXPECT_EQ(error(), "-350,\"Queue overflow\"\n");
    EXPECT_EQ(error(), "0,\"No error\"\n");
    EXPECT_EQ(session.status.takeEvents(), 128u + 32u + 8u);
    send("SCAN:STEP 99\n");
    session.status.eventsEnabled = 16;
    session.status.serviceEnabled = 32;
    EXPECT_EQ(session.status.byte(true), 4u + 16u + 32u + 64u);
    session.status.questionable.enable = 1;
    session.status.questionable.follow(1);
    session.status.questionable.follow(0); // over, but not forgotten
    EXPECT_EQ(session.status.byte(false) & 8u, 8u);
    session.status.clear();
    EXPECT_EQ(session.status.byte(false), 0u);
}

TEST_F(Scpi, WaitsForWhatIsUnderWayAndHearsAStop) {
    underWay = true;
    EXPECT_EQ(send("SCAN:STEP 2;*WAI;STEP?\nSCAN:AREA 1\n"), "");
    EXPECT_EQ(done_, "");
    underWay = false;
    EXPECT_EQ(send(""), "2.000000\n");
    EXPECT_EQ(done_, "area1");

    underWay = true;
    EXPECT_EQ(send("*OPC?;SCAN:STEP?\n"), "");
    underWay = false;
    EXPECT_EQ(send(""), "1;2.000000\n");

    underWay = true; // gives the answer up
    EXPECT_EQ(send("*OPC?;SCAN:STEP?\nSCAN:STEP?\n"), "2.000000\n");
    EXPECT_EQ(error(), "-410,\"Query INTERRUPTED\"\n");

    done_.clear();
    EXPECT_EQ(send("*WAI;SCAN:STEP?\nSCAN:AREA 1\nSCAN:STOP\n"), "2.000000\n");
    EXPECT_EQ(done_, "stoparea1");
}

TEST_F(Scpi, BoundsWhatAClientCanMakeItKeep) {
    const std::string megabyte(1 << 20, 'x');
    send("SCAN:AREA 1\nSCAN:STEP " + megabyte + ";SCAN:STEP 3\nSCAN:AREA 1\n");
    EXPECT_EQ(error(), "-363,\"Input buffer overrun;a message of more than 64 KB\"\n");
    EXPECT_EQ(done_, "area1area1");
    EXPECT_EQ(step, 0.0);

    // Commands inside a block are none, and a line feed in it ends nothing.
    send("LIST:LOAD #216\nSCAN:STEP 5\n\n\n\n;:SCAN:STEP 6\n");
    EXPECT_EQ(step, 0.0);
    EXPECT_EQ(error().substr(0, 4), "-168");
    EXPECT_EQ(send("DATA?\n"), std::string("#13\n\0;\n", 7));

    // Nobody reads: nothing is carried out beside a full answer.
    std::string many;
    for (int i = 0; i < 10000; ++i) many += "SCAN:STEP?\n";
    session.receive(many);
    while (session.step()) {
    }
    EXPECT_LT(session.output.size(), 70000u);
    session.output.clear();
    EXPECT_EQ(send("").back(), '\n');
}

TEST_F(Scpi, HangsUpWhereABlockNeverEnds) {
    EXPECT_EQ(error().substr(0, 2), "0,");
    EXPECT_EQ(send("SCAN:STEP #565536" + std::string(65536, '\n') + "\n"), "");
    EXPECT_FALSE(session.wantsClosing());
    EXPECT_EQ(error().substr(0, 4), "-363");
    EXPECT_EQ(send("SCAN:STEP?\nSCAN:STEP #9999999999\nSCAN:AREA 1\nSCAN:STEP?\n"), "0.000000\n");
    EXPECT_EQ(send(std::string(1 << 20, '\n') + "SCAN:AREA 1\n"), "");
    EXPECT_TRUE(session.wantsClosing());
    EXPECT_EQ(done_, "");
}

TEST_F(Scpi, HangsUpOnABrowser) {
    for (const char* text : {"POST / HTTP/1.1\r\n", "GET /SCAN:STEP HTTP/1.1\n", "HOST: a\n"}) {
        ScpiSession other{{.verbs = table}};
        other.receive(std::string(text) + "SCAN:STEP 2\nSCAN:AREA 1\n");
        while (other.step()) {
        }
        EXPECT_TRUE(other.wantsClosing()) << text;
        EXPECT_EQ(step, 0.0);
    }
    ScpiSession other{{.verbs = table}};
    other.receive("GET /" + std::string(1 << 17, 'x') + "\nSCAN:STEP 2\n");
    while (other.step()) {
    }
    EXPECT_TRUE(other.wantsClosing());
    EXPECT_EQ(step, 0.0);
}
