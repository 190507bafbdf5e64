"""The words to describe what is measured, and what measuring takes."""

import os
import platform
import shutil
import subprocess

from measured import NAME, VESKO, Failure, cached_variable

PORT = 4644


def describe():
    version = subprocess.run([VESKO, "--version"], capture_output=True, text=True, check=True).stdout.strip()
    return {"program": str(VESKO), "version": version, "buildType": cached_variable("CMAKE_BUILD_TYPE"),
            "compiler": cached_variable("CMAKE_CXX_COMPILER"), "sanitizers": cached_variable("VESKO_SANITIZE"),
            "kernel": platform.release(), "processors": os.cpu_count()}


def print_circumstances(facts):
    print(f"measured: {facts['program']} ({facts['version']}, {facts['buildType']}, {facts['compiler']})")
    if facts["sanitizers"]:
        print(f"          built with {facts['sanitizers']}: these times say nothing")
    print(f"on:       Linux {facts['kernel']}, {facts['processors']} processors that all of it shares",
          flush=True)


def check_means(*tools):
    if os.geteuid() != 0:
        raise Failure(f"making network namespaces takes root: sudo bench/{NAME}")
    missing = [tool for tool in ("ip", "cmake", *tools) if shutil.which(tool) is None]
    if missing:
        raise Failure(f"missing: {', '.join(missing)}; scripts/setup --ci installs them")
