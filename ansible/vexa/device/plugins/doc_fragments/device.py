"""What both modules say of the device of a task."""


class ModuleDocFragment:
    DOCUMENTATION = r"""
options:
  device:
    description: Its address, as C(rec-7), C(10.0.0.7:43110), C([fe80::1]) or C(udp://rec-7).
    type: str
    required: true
  timeout:
    description: Seconds to wait for the device, and for each of its answers.
    type: float
    default: 5
"""
