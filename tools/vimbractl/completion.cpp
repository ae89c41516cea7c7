#include "completion.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <optional>
#include <sstream>

#include "interfaces.hpp"

namespace ctl {

namespace {

// Where the words before the one that is typed lead.
struct Place {
    const CLI::App* command;
    const CLI::Option* awaitsValue = nullptr;
    size_t positions = 0;
    std::vector<const CLI::Option*> used = {};
};

bool TakesValue(const CLI::Option& option) {
    return option.get_items_expected_max() > 0;
}

void PassOption(Place& place, const std::string& word) {
    const CLI::Option* const option =
        place.command->get_option_no_throw(word.substr(0, word.find('=')));
    if (option != nullptr) {
        place.used.push_back(option);
        place.awaitsValue =
            TakesValue(*option) && word.find('=') == std::string::npos ? option : nullptr;
    }
}

// False where the words lead nowhere.
bool Pass(Place& place, const std::string& word) {
    if (place.awaitsValue != nullptr) {
        place.awaitsValue = nullptr;
        return true;
    }
    if (word.starts_with('-')) {
        PassOption(place, word);
        return true;
    }
    if (CommandsBelow(*place.command).empty()) {
        place.positions++;
        return true;
    }
    const auto meant = CommandsMeant(*place.command, word);
    if (meant.size() == 1) {
        place.command = meant.front();
    }
    return meant.size() == 1;
}

// Without what is accepted.
std::string AboutOf(const CLI::Option& option) {
    const std::string about = option.get_description();
    return about.substr(0, about.find(": "));
}

class Candidates {
 public:
    explicit Candidates(std::string typed) : typed_(std::move(typed)) {}

    void Offer(const std::string& word, const std::string& about) {
        if (word.starts_with(typed_)) {
            text_ += word + "\t" + about.substr(0, about.find('\n')) + "\n";
        }
    }

    void OfferValues(const CLI::Option& option) {
        const std::string type = option.get_type_name();
        if (type == kInterfaceType) {
            for (const std::string& name : InterfaceNames()) {
                Offer(name, "interface");
            }
        } else if (type.starts_with('{')) {
            std::istringstream values(type.substr(1, type.size() - 2));
            for (std::string value; std::getline(values, value, ',');) {
                Offer(value, AboutOf(option));
            }
        }
    }

    void OfferOptions(const Place& place) {
        for (const CLI::Option* option : place.command->get_options()) {
            if (std::ranges::find(place.used, option) != place.used.end()) {
                continue;
            }
            for (const std::string& name : option->get_lnames()) {
                Offer("--" + name, AboutOf(*option));
            }
            for (const std::string& name : option->get_snames()) {
                Offer("-" + name, AboutOf(*option));
            }
        }
    }

    void OfferPosition(const Place& place) {
        size_t index = 0;
        const CLI::Option* last = nullptr;
        for (const CLI::Option* option : place.command->get_options()) {
            if (!option->get_positional()) {
                continue;
            }
            last = option;
            if (index++ == place.positions) {
                OfferValues(*option);
                return;
            }
        }
        // The last one may be repeated.
        if (last != nullptr && last->get_items_expected_max() > 1) {
            OfferValues(*last);
        }
    }

    const std::string& Text() const { return text_; }

 private:
    std::string typed_;
    std::string text_;
};

}  // namespace

std::string Completions(const CLI::App& root, const Words& words) {
    const std::string typed = words.empty() ? "" : words.back();
    Place place = {&root};
    for (size_t i = 0; i + 1 < words.size(); i++) {
        if (!Pass(place, words[i])) {
            return "";
        }
    }
    Candidates candidates(typed);
    if (place.awaitsValue != nullptr) {
        candidates.OfferValues(*place.awaitsValue);
    } else if (typed.starts_with('-')) {
        candidates.OfferOptions(place);
    } else if (!CommandsBelow(*place.command).empty()) {
        for (const CLI::App* command : CommandsBelow(*place.command)) {
            candidates.Offer(command->get_name(), command->get_description());
        }
    } else {
        candidates.OfferPosition(place);
    }
    return candidates.Text();
}

}  // namespace ctl
