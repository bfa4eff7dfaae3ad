#pragma once

namespace bc::app {

// The windowed application; "--demo" among the arguments runs it on sample data only.
int runApplication(int argc, char** argv);

}  // namespace bc::app
