#pragma once

#include <QRandomGenerator>

/// A seed for a test with random input: another one in each run, or that of the environment variable
/// NVX_SEED. It is said in the output.
inline quint32 testSeed()
{
    bool given = false;
    const uint value = qEnvironmentVariable("NVX_SEED").toUInt(&given);
    const quint32 seed = given ? value : QRandomGenerator::global()->generate();
    qInfo("seed %u (NVX_SEED repeats it)", seed);
    return seed;
}
