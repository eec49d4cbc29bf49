// Command lines that are handed over, and their answers: a message is read in one way only.
#include "app/process/hand_over.h"
#include "engine/selection.h"
#include "fuzz.h"

void vantlow::fuzz::run(std::string_view input) {
    if (const auto words = decode_words(input)) CHECK(encode(*words) == input);
    if (const auto answer = decode_answer(input)) CHECK(encode(*answer) == input);
    const std::size_t count = take_byte(input);
    if (const auto chosen = select(input, count)) {
        CHECK(chosen->size() <= count);
        for (const std::size_t index : *chosen) CHECK(index < count);
    }
}
