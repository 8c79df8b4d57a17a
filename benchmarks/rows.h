#pragma once

#include "benchmarks/effort.h"
#include "benchmarks/table.h"

#include <vector>

namespace nimbrale::benchmarks {

// Each measures one question on desktops of its own and gives its lines of the table. Throws Failure when the
// application cannot be measured.

[[nodiscard]] std::vector<TableRow> measureStaticScreen(const Effort& effort);
[[nodiscard]] std::vector<TableRow> measurePointerOutside(const Effort& effort);
[[nodiscard]] std::vector<TableRow> measureHiddenChange(const Effort& effort);
[[nodiscard]] std::vector<TableRow> measureSmallChange(const Effort& effort);
[[nodiscard]] std::vector<TableRow> measureFullHdVideo(const Effort& effort);
[[nodiscard]] std::vector<TableRow> measureUltraHdVideo(const Effort& effort);
[[nodiscard]] std::vector<TableRow> measureIdleLatency(const Effort& effort);
[[nodiscard]] std::vector<TableRow> measureLatencyBesideVideo(const Effort& effort);
/// The same as without one, under each compositing manager.
[[nodiscard]] std::vector<TableRow> measureCompositedStill(const Effort& effort);
[[nodiscard]] std::vector<TableRow> measureCompositedFullHdVideo(const Effort& effort);
[[nodiscard]] std::vector<TableRow> measureCompositedUltraHdVideo(const Effort& effort);
[[nodiscard]] std::vector<TableRow> measureCompositedLatency(const Effort& effort);
[[nodiscard]] std::vector<TableRow> measureStart(const Effort& effort);
[[nodiscard]] std::vector<TableRow> measureMemory(const Effort& effort);
[[nodiscard]] std::vector<TableRow> measureDragStep(const Effort& effort);
[[nodiscard]] std::vector<TableRow> measureWebcamCost(const Effort& effort);
[[nodiscard]] std::vector<TableRow> measureWebcamLatency(const Effort& effort);
[[nodiscard]] std::vector<TableRow> measureWebcamStart(const Effort& effort);
[[nodiscard]] std::vector<TableRow> measureWebcamMemory(const Effort& effort);
[[nodiscard]] std::vector<TableRow> measureRecordingCost(const Effort& effort);
[[nodiscard]] std::vector<TableRow> measureStillRecordingCost(const Effort& effort);
[[nodiscard]] std::vector<TableRow> measureRecordingLatency(const Effort& effort);
[[nodiscard]] std::vector<TableRow> measureLargeRecording(const Effort& effort);
[[nodiscard]] std::vector<TableRow> measureRecordingMemory(const Effort& effort);

} // namespace nimbrale::benchmarks
