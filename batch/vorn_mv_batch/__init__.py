# Copyright 2026 the vorn authors
# SPDX-License-Identifier: Apache-2.0
"""Many scans on many machines: runs the steps of a plan, which are commands of vorn-mv, for every input."""

VERSION = "1.0.0"


class BatchError(Exception):
    """A fault that ends the whole run, with a text for the user; `status` is the program's."""

    def __init__(self, text, status=1):
        super().__init__(text)
        self.status = status


class UsageError(BatchError):
    """A plan or a command line that cannot be meant so."""

    def __init__(self, text):
        super().__init__(text, status=2)
