#pragma once

#include "platform/layer.h"

#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace nimbrale {

class RecordingHost final : public LayerHost {
public:
    void invalidate(const Rect& area) override { invalidated.push_back(area); }
    void scheduleCommit() override { ++scheduledCommits; }
    void commit() override { ++commits; }

    std::vector<Rect> invalidated;
    int scheduledCommits = 0;
    int commits = 0;
};

class LayerTest : public testing::Test {
protected:
    LayerTest()
    {
        root.setHost(&host);
        root.setFrame({0, 0, 200, 100});
        host.invalidated.clear();
    }

    std::shared_ptr<Layer> addChild(const Rect& frame)
    {
        auto child = std::make_shared<Layer>();
        child->setFrame(frame);
        root.addSublayer(child);
        host.invalidated.clear();
        return child;
    }

    RecordingHost host;
    Layer root;
};

} // namespace nimbrale
