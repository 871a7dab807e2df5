/// The parts of the table. Each prints its rows.
#pragma once

void MeasureStore();
void MeasureNumberOfParameters();
void MeasureNetwork();
void MeasureQueues();
void MeasureDaemon();
void MeasureDevices();
/// @param seconds  of 1,000 changes a second.
void MeasureState(int seconds);
