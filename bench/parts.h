/// The parts of the table. Each prints its rows.
#pragma once

void MeasureStore();
void MeasureNumberOfParameters();
void MeasureNetwork();
void MeasureQueues();
void MeasureDaemon();
void MeasureDevices();
