// The solver thread's lines as the client reads them, made from its records.
#include <gtest/gtest.h>

#include <string>

#include "shell/protocol/game_setup.h"
#include "shell/protocol/settings.h"
#include "shell/solver_output.h"

namespace {

std::string printed(const SolverReport& report) {
    testing::internal::CaptureStdout();
    print_solver_progress(report);
    return testing::internal::GetCapturedStdout();
}

TEST(SolverOutput, ProgressBlocksAddHalfThePotAndCommentsNeedTheFrontEndMode) {
    const double saved_pot = pot;
    pot = 100;
    SolverReport report;
    report.record = {25, 0, 2.0, -1.5, 1.5, 0.25, 2.75, 0.75};
    report.storage_read_bytes = 3 << 20;
    report.storage_write_bytes = 1 << 20;
    EXPECT_EQ(printed(report),
              "SOLVER:\nrunning time: 2.000\nEV OOP: 48.500\nEV IP: 51.500\nOOP's MES: 50.250\n"
              "IP's MES: 52.750\nExploitable for: 0.750\nEND\n");
    front_end_mode = true;
    EXPECT_EQ(printed(report),
              "#SOLVER:\trunning time: 2.000\tEV OOP: 48.500\tEV IP: 51.500\tOOP's MES: 50.250\t"
              "IP's MES: 52.750\tExploitable for: 0.750\tEND\n#25 iterations\n"
              "#storage 2 MB/s read, 1 MB/s write\n");
    front_end_mode = false;
    pot = saved_pot;
    EXPECT_STREQ(solver_stop_text(SolverStop::requested), "requested");
    EXPECT_STREQ(solver_stop_text(SolverStop::accuracy_reached), "required accuracy reached");
    EXPECT_STREQ(solver_stop_text(SolverStop::steps_done), "required number of steps done");
    EXPECT_STREQ(solver_stop_text(SolverStop::timeout), "timeout reached");
}

}  // namespace
