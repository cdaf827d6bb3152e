"""The command-line tool vu-mom; docs/vu-mom.md tells how it is used."""

__version__ = "0.1.0"  # that of the project in CMakeLists.txt
