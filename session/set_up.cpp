// The fields of a set-up.
#include "session/set_up.h"

#include "platform/text_format.h"
#include "platform/typed_number.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <sstream>

SetUp setUp;

std::string presentObjective() {
    const std::string& name = setUp.objective().name;
    return name.empty() ? std::to_string(setUp.objectiveInUse) : oneLine(name);
}

namespace {

constexpr double farthestUm = 1e6;
constexpr double infinite = std::numeric_limits<double>::infinity();

// Also with a sign before it, as somebody may write it.
std::optional<double> numberIn(std::string_view text) {
    if (text.starts_with('+')) text.remove_prefix(1);
    return exactNumber(text);
}

// "0:0 4:11.5 16:46": pairs that ascend in their first number, none of them negative.
std::optional<PowerTable> powerTableIn(const std::string& text) {
    PowerTable table;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        const size_t colon = std::min(word.find(':'), word.size());
        const auto level = numberIn(word.substr(0, colon));
        const auto power = numberIn(word.substr(std::min(colon + 1, word.size())));
        if (!level || !power || *level < 0.0 || *power < 0.0) return {};
        if (!table.empty() && *level <= table.back().first) return {};
        table.emplace_back(*level, *power);
    }
    if (table.size() == 1) return {}; // no line through it
    return table;
}

class Fields {
public:
    void page(SetUpPage next) { now.page = next; }
    void objective(int next) { now.objective = next; }

    template <class Of> SetUpField& add(const std::string& name, Of of, bool shapesMaps) {
        SetUpField& field = all.emplace_back(now);
        field.name = name;
        field.of = [of](SetUp& from) { return SetUpField::Value(&of(from)); };
        field.shapesMaps = shapesMaps;
        return field;
    }
    template <class Of>
    SetUpField& number(const std::string& name, double lowest, double highest, Of of,
                       bool shapesMaps = true) {
        SetUpField& field = add(name, of, shapesMaps);
        field.lowest = lowest;
        field.highest = highest;
        return field;
    }

    std::vector<SetUpField> all;

private:
    SetUpField now;
};

void addObjective(Fields& fields, int number) {
    const auto of = [number](SetUp& from) -> Objective& {
        return from.objectives[static_cast<size_t>(number - 1)];
    };
    const std::string name = "objective " + std::to_string(number);
    fields.objective(number);
    fields.add(
        name, [of](SetUp & s) -> auto& { return of(s).name; }, true);
    constexpr double most = 20.0; // um per pixel: a field of 25 mm
    const auto part = [&](const char* of_, double Objective::*member) {
        fields.number(
            name + of_, -most, most, [ of, member ](SetUp & s) -> auto& { return of(s).*member; });
    };
    part(" X per column (um)", &Objective::xPerColumn);
    part(" X per row (um)", &Objective::xPerRow);
    part(" Y per column (um)", &Objective::yPerColumn);
    part(" Y per row (um)", &Objective::yPerRow);
    fields
        .number(
            name + " laser spot column", 0,
            1231, [of](SetUp & s) -> auto& { return of(s).spotColumn; }, false)
        .none = -1;
    fields
        .number(
            name + " laser spot row", 0, 1027, [of](SetUp & s) -> auto& { return of(s).spotRow; },
            false)
        .none = -1;
    fields.number(
        name + " spot correction X (um)", -1000,
        1000, [of](SetUp & s) -> auto& { return of(s).correctionXUm; });
    fields.number(
        name + " spot correction Y (um)", -1000,
        1000, [of](SetUp & s) -> auto& { return of(s).correctionYUm; });
    fields.number(
        name + " focus (um)", -20000, 20000, [of](SetUp & s) -> auto& { return of(s).focusUm; },
        false);
    fields.objective(0);
}

void addAxis(Fields& fields, size_t i) {
    const std::string axis(1, "XYZ"[i]);
    const auto drive = [&](const char* name, double lowest, double highest, auto member) {
        fields.number(
            axis + name, lowest, highest,
            [ i, member ](SetUp & s) -> auto& { return s.drives[i].*member; });
    };
    drive(" um per turn", 0.1, 100000, &AxisDrive::umPerTurn);
    drive(" full steps per turn", 1, 10000, &AxisDrive::fullStepsPerTurn);
    drive(" microsteps per full step", 1, 256, &AxisDrive::microsteps);
    fields.add(
        axis + " counts the other way", [i](SetUp & s) -> auto& { return s.drives[i].reversed; },
        true);
    drive(" speed (full steps/s)", 10, 800, &AxisDrive::speed);
    const auto end = [&](const std::string& name, double AxisRange::*member, double none) {
        fields
            .number(
                name, -farthestUm, farthestUm,
                [ i, member ](SetUp & s) -> auto& { return s.ranges[i].*member; }, false)
            .none = none;
    };
    end("lowest " + axis + " (um)", &AxisRange::lowest, -infinite);
    end("highest " + axis + " (um)", &AxisRange::highest, infinite);
}

void addAmplifier(Fields& fields, const std::string& of, CurrentAmplifier SetUp::*amplifier) {
    fields
        .number(
            of + " amplifier (V/A)", 1,
            1e15, [=](SetUp & s) -> auto& { return (s.*amplifier).voltsPerAmpere; })
        .none = 0;
    fields.add(
        of + " amplifier inverts", [=](SetUp & s) -> auto& { return (s.*amplifier).inverts; },
        true);
    fields.number(
        of + " amplifier offset (V)", -100,
        100, [=](SetUp & s) -> auto& { return (s.*amplifier).offsetVolts; });
}

void addLaserAndAmplifier(Fields& fields) {
    fields.number(
        "laser uA per V", 1e-6, 1e6, [](SetUp & s) -> auto& { return s.laserUaPerVolt; });
    fields.number(
        "laser full scale (V)", 0.1, 100, [](SetUp & s) -> auto& { return s.laserFullScaleVolts; });
    fields.add(
        "laser power (uA:uW)", [](SetUp & s) -> auto& { return s.laserPower; }, true);
    fields.number(
        "laser pin", 0, 9, [](SetUp & s) -> auto& { return s.laserPin; });
    fields.number(
        "lamp pin", 0, 9, [](SetUp & s) -> auto& { return s.lampPin; });
    fields.number(
        "lamp on level", 1, 255, [](SetUp & s) -> auto& { return s.lampOnLevel; });
    fields.number(
        "analog input full scale (V)", 0.1, 100,
        [](SetUp & s) -> auto& { return s.inputFullScaleVolts; });
    fields.number(
        "analog input bits", 8, 24, [](SetUp & s) -> auto& { return s.inputBits; });
    fields.number(
        "analog input dead zone (counts)", 0, 1000,
        [](SetUp & s) -> auto& { return s.inputDeadCounts; });
    addAmplifier(fields, "board", &SetUp::boardAmplifier);
    addAmplifier(fields, "oscilloscope", &SetUp::scopeAmplifier);
    fields
        .number(
            "amplifier (V/A)", 1, 1e15,
            [](SetUp & s) -> auto& { return s.amplifierVoltsPerAmpere; })
        .none = 0;
    fields
        .add(
            "lock-in current input", [](SetUp & s) -> auto& { return s.lockInCurrentInAmperes; },
            true)
        .choices = {"amperes", "volts"};
    fields.number(
        "GPIB board", 0, 99, [](SetUp & s) -> auto& { return s.gpibBoard; }, false);
    fields.add(
        "sourcemeter VISA resource", [](SetUp & s) -> auto& { return s.sourcemeterResource; },
        false);
    fields.add(
        "laser board interlock", [](SetUp & s) -> auto& { return s.boardHasInterlock; }, false);
    fields
        .number(
            "laser board keep-alive (s)", 2, 60,
            [](SetUp & s) -> auto& { return s.boardKeepAliveS; }, false)
        .none = 0;
}

// Of a rotation, a mirror and a scale that differs a little between the axes.
bool isPossible(const Objective& o) {
    const double column = std::hypot(o.xPerColumn, o.yPerColumn);
    const double row = std::hypot(o.xPerRow, o.yPerRow);
    if (!(column >= 0.001 && row >= 0.001)) return false;
    const double cosine = (o.xPerColumn * o.xPerRow + o.yPerColumn * o.yPerRow) / (column * row);
    return std::fabs(cosine) <= 0.2 && column / row >= 0.8 && column / row <= 1.25;
}

std::vector<std::string> partsOf(const std::string& words) {
    std::vector<std::string> parts;
    for (size_t at = 0; at < words.size();) {
        const size_t end = std::min(words.find("; ", at), words.size());
        parts.push_back(words.substr(at, end - at));
        at = end + 2;
    }
    return parts;
}

// The value of the part with that name, or of none.
std::string valueIn(const std::vector<std::string>& parts, const std::string& name) {
    for (const std::string& part : parts)
        if (part.starts_with(name + " = ")) return part.substr(name.size() + 3);
    return "default";
}

} // namespace

std::optional<double> powerUwAt(const PowerTable& table, double uA) {
    if (table.empty()) return {};
    const double hair = 1e-6 * table.back().first; // a typed intensity is a float
    if (!(uA >= table.front().first - hair && uA <= table.back().first + hair)) return {};
    size_t i = 1;
    while (i + 1 < table.size() && table[i].first < uA) ++i;
    const auto& [fromUa, fromUw] = table[i - 1];
    const auto& [toUa, toUw] = table[i];
    const double part = std::clamp((uA - fromUa) / (toUa - fromUa), 0.0, 1.0);
    return fromUw + part * (toUw - fromUw);
}

std::vector<SetUpField> setUpFields(const SetUp& of) {
    Fields fields;
    fields.page(SetUpPage::Optics);
    fields.number(
        "objective in use", 1, mostObjectives, [](SetUp & s) -> auto& { return s.objectiveInUse; },
        false);
    for (size_t i = 1; i <= of.objectives.size(); ++i) addObjective(fields, static_cast<int>(i));
    fields.page(SetUpPage::Stage);
    for (size_t i = 0; i < of.drives.size(); ++i) addAxis(fields, i);
    fields.number(
        "focus speed (full steps/s)", 10, 800, [](SetUp & s) -> auto& { return s.focusSpeed; },
        false);
    fields.page(SetUpPage::LaserAndAmplifier);
    addLaserAndAmplifier(fields);
    fields.page(SetUpPage::Camera);
    fields.add(
        "camera serial number", [](SetUp & s) -> auto& { return s.cameraSerial; }, true);
    return fields.all;
}

bool takeField(const SetUpField& field, SetUp& into, const std::string& value) {
    const SetUpField::Value of = field.of(into);
    if (const auto text = std::get_if<std::string*>(&of)) {
        if (value.size() > 100 || value.find_first_of(";=\r\n") != std::string::npos) return false;
        **text = value;
        return true;
    }
    if (const auto yes = std::get_if<bool*>(&of)) {
        if (value != field.choices.first && value != field.choices.second) return false;
        **yes = value == field.choices.first;
        return true;
    }
    if (const auto table = std::get_if<PowerTable*>(&of)) {
        const auto taken = powerTableIn(value);
        if (taken) **table = *taken;
        return taken.has_value();
    }
    std::optional<double> number = numberIn(value);
    if (number && !(*number >= field.lowest && *number <= field.highest)) return false;
    if (!number && value.empty()) number = field.none;
    if (!number) return false;
    if (const auto real = std::get_if<double*>(&of)) {
        **real = *number;
        return true;
    }
    const auto whole = static_cast<int32_t>(*number);
    if (whole != *number) return false;
    *std::get<int32_t*>(of) = whole;
    return true;
}

std::string textOf(const SetUpField& field, const SetUp& set) {
    SetUp copy = set; // the field's way to its value is one for writing, too
    const SetUpField::Value of = field.of(copy);
    if (const auto text = std::get_if<std::string*>(&of)) return **text;
    if (const auto yes = std::get_if<bool*>(&of))
        return **yes ? field.choices.first : field.choices.second;
    if (const auto table = std::get_if<PowerTable*>(&of)) {
        std::string words;
        for (const auto& [level, power] : **table)
            words += (words.empty() ? "" : " ") + shortestText(level) + ":" + shortestText(power);
        return words;
    }
    const auto whole = std::get_if<int32_t*>(&of);
    const double number = whole ? **whole : *std::get<double*>(of);
    return number == field.none ? "" : shortestText(number);
}

std::string allowedFor(const SetUpField& field) {
    SetUp some;
    some.objectives.resize(mostObjectives);
    const SetUpField::Value of = field.of(some);
    if (std::holds_alternative<std::string*>(of)) return "a text of at most 100 letters";
    if (std::holds_alternative<bool*>(of))
        return formatted("%s or %s", field.choices.first, field.choices.second);
    if (std::holds_alternative<PowerTable*>(of)) return "pairs that ascend, as 0:0 4:11.5 16:46";
    const bool whole = std::holds_alternative<int32_t*>(of);
    return (whole ? "a whole number, " : "") + shortestText(field.lowest) + " to " +
           shortestText(field.highest) + (field.none ? ", or empty" : "");
}

SetUpFault faultIn(const SetUp& of) {
    for (size_t i = 0; i < of.ranges.size(); ++i) {
        const char axis = "XYZ"[i];
        if (!(of.ranges[i].lowest < of.ranges[i].highest))
            return {formatted("lowest %c (um) is not below highest %c (um)", axis, axis),
                    formatted("highest %c (um)", axis)};
        const int32_t microsteps = of.drives[i].microsteps;
        if ((microsteps & (microsteps - 1)) != 0)
            return {formatted("%c microsteps per full step is not 1, 2, 4, 8, ... 256", axis),
                    formatted("%c microsteps per full step", axis)};
    }
    if (static_cast<size_t>(of.objectiveInUse) > of.objectives.size())
        return {formatted("there is no objective %d", of.objectiveInUse), "objective in use"};
    for (size_t i = 0; i < of.objectives.size(); ++i) {
        if (isPossible(of.objectives[i])) continue;
        const auto number = static_cast<int>(i + 1);
        return {formatted("objective %d: the picture's columns and rows must stand across each "
                          "other, within 11 degrees, and be alike within 25 %%",
                          number),
                formatted("objective %d X per column (um)", number)};
    }
    if (of.laserPin == of.lampPin) return {"laser and lamp cannot have the same pin", "lamp pin"};
    return {};
}

std::string setUpWords(const SetUp& of) {
    SetUp asEver;
    asEver.objectives.resize(of.objectives.size());
    std::string words;
    for (const SetUpField& field : setUpFields(of)) {
        const bool counts = field.objective == 0 || field.objective == of.objectiveInUse;
        if (!field.shapesMaps || !counts || textOf(field, of) == textOf(field, asEver)) continue;
        if (!words.empty()) words += "; ";
        words += field.name;
        words += " = ";
        words += textOf(field, of);
    }
    return words.empty() ? "default" : words;
}

std::string setUpDifference(const std::string& before, const std::string& now) {
    const std::vector<std::string> was = partsOf(before), is = partsOf(now);
    std::string words;
    const auto say = [&](const std::string& name) {
        const std::string from = valueIn(was, name), to = valueIn(is, name);
        if (from == to) return;
        if (!words.empty()) words += "; ";
        words += name;
        words += ": ";
        words += from;
        words += " became ";
        words += to;
    };
    const auto nameOf = [](const std::string& part) { return part.substr(0, part.find(" = ")); };
    for (const std::string& part : was) say(nameOf(part));
    for (const std::string& part : is)
        if (valueIn(was, nameOf(part)) == "default") say(nameOf(part));
    return words;
}
