// A library of the sample application: nothing but content that differs from version to version.

extern "C" __declspec(dllexport) const char* SampleVersion() { return SAMPLE_VERSION; }
