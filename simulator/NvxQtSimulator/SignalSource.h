#pragma once

#include <cstddef>
#include <cstdint>

/// How samples lie in memory.
struct SampleFormat
{
    unsigned bytesPerSample = 3; ///< 2, 3 or 4
    bool bigEndian = false;
    unsigned channels = 1; ///< 1 to 8, frame by frame
};

/// What a simulated recorder hears.
struct SignalSettings
{
    enum Kind : uint8_t {
        Tone,  ///< sine wave of one frequency
        Sweep, ///< sine wave whose frequency rises in a straight line and starts over
        Noise, ///< white noise, nearly normally distributed
        Ramp,  ///< every sample is its sample number, for exact accounting
        /// white noise, and at each whole multiple of impulseSeconds a sine burst in its place, to judge
        /// detectors and statistics
        Impulses,
    };

    Kind kind = Tone;
    double frequency = 1000.0;    ///< Hz: of the tone and of the bursts, or where the sweep starts
    double endFrequency = 8000.0; ///< Hz: where the sweep ends
    double sweepSeconds = 5.0;    ///< length of one sweep
    /// dBFS of the effective value; a sine wave of full scale has 0. Of impulses that of the noise between
    /// them. The ramp takes no notice.
    double levelDb = -20.0;
    double impulseSeconds = 1.0;  ///< from the beginning of one burst to that of the next
    double impulseLength = 0.01;  ///< seconds that a burst lasts, at most impulseSeconds
    double impulseLevelDb = -6.0; ///< dBFS of the sine wave in a burst
    uint64_t seed = 1;            ///< of the noise
};

/// Makes samples out of their numbers alone: the sample of a number is the same whenever it is asked for.
/// The phase of tones is kept as a 64-bit fraction of a cycle; in three years it drifts by less than a
/// millionth of a cycle. Channels differ: tones by
/// a sixteenth of a cycle for each channel, noise altogether, the ramp by rampValue(); bursts come on all of
/// them at once and are the same. Immutable; may be used from any thread.
class SignalSource
{
public:
    static constexpr unsigned kMaxChannels = 8;

    /// `sampleRate` in Hz, above 0.
    SignalSource(const SignalSettings& settings, uint32_t sampleRate);

    /// Writes the samples `first` to `first + frames - 1` of each channel to `out`, which holds
    /// frames x channels x bytes per sample bytes. A format outside its ranges writes nothing.
    void fill(uint64_t first, size_t frames, const SampleFormat& format, unsigned char* out) const;
    /// The same as numbers, scaled to samples of `bits` bits.
    void values(uint64_t first, size_t frames, unsigned channels, unsigned bits, int32_t* out) const;

    /// Value of the ramp: the sample number plus channel x 2^(bits - 3), wrapped to a signed number of `bits`
    /// bits. So the first channel gives the sample number itself.
    static int32_t rampValue(uint64_t sampleNumber, unsigned channel, unsigned bits);

    /// Samples from the beginning of one burst to that of the next; each begins, at phase 0, at a sample
    /// number that is a whole multiple of it.
    uint64_t impulsePeriod() const { return m_impulsePeriod; }
    /// Samples of a burst.
    uint64_t impulseSamples() const { return m_impulseSamples; }

private:
    void toneValues(uint64_t first, size_t frames, unsigned channels, double scale, int32_t* out) const;
    void sweepValues(uint64_t first, size_t frames, unsigned channels, double scale, int32_t* out) const;
    void noiseValues(uint64_t first, size_t frames, unsigned channels, double scale, int32_t* out) const;
    void putBursts(uint64_t first, size_t frames, unsigned channels, double scale, int32_t* out) const;

    SignalSettings m_settings;
    double m_amplitude = 0.0;     ///< of full scale; for noise its effective value
    uint64_t m_phaseStep = 0;     ///< fraction of a cycle per sample, in units of 2^-64
    uint64_t m_phaseStepStep = 0; ///< what a sweep adds to it at each sample
    uint64_t m_sweepSamples = 1;
    double m_impulseAmplitude = 0.0; ///< of full scale
    uint64_t m_impulsePeriod = 1;
    uint64_t m_impulseSamples = 1;
};
