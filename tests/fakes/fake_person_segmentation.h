#pragma once

#include "platform/person_segmentation.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace nimbrale {

/// Finds the person that a test says, whatever the picture shows. The test keeps `State` and changes it between
/// pictures.
class FakePersonSegmentation final : public PersonSegmentation {
public:
    struct State {
        int width = 0;
        int height = 0;
        std::vector<std::uint8_t> values;
        /// Not empty: the next calls fail with it.
        std::string failure;
        int calls = 0;

        /// A mask of that size, with the value that `value` gives for each column and row.
        void setMask(int newWidth, int newHeight, const std::function<int(int x, int y)>& value)
        {
            width = newWidth;
            height = newHeight;
            values.clear();
            for (int y = 0; y < height; ++y) {
                for (int x = 0; x < width; ++x)
                    values.push_back(static_cast<std::uint8_t>(value(x, y)));
            }
        }
        [[nodiscard]] PersonMask mask() const { return {width, height, values}; }
    };

    explicit FakePersonSegmentation(std::shared_ptr<State> state) : state_(std::move(state)) {}

    Result<PersonMask> findPerson(const PixelBuffer& /*picture*/) override
    {
        ++state_->calls;
        if (!state_->failure.empty())
            return fail(ErrorCode::temporary, state_->failure);
        return state_->mask();
    }

private:
    std::shared_ptr<State> state_;
};

} // namespace nimbrale
