"""What holds for all tests of the platform."""

from hypothesis import settings

# An example takes as long as the processor needs, which may be an emulated one.
settings.register_profile("vu", deadline=None)
settings.load_profile("vu")
