"""What both modules share: the device of a task."""
import traceback

from ansible.module_utils.basic import missing_required_lib

try:
    import vexa
    WHY_NO_VEXA = None
except ImportError:
    WHY_NO_VEXA = traceback.format_exc()

OPTIONS = {
    "device": {"type": "str", "required": True},
    "model": {"type": "str"},
    "timeout": {"type": "float", "default": 5.0},
}


def connect(module):
    """The device in step, or the end of the module."""
    if WHY_NO_VEXA:
        module.fail_json(msg=missing_required_lib("vexa"), exception=WHY_NO_VEXA)
    address = module.params["device"]
    try:
        device = vexa.Device(address, model=module.params["model"], timeout=module.params["timeout"])
    except ValueError as error:
        module.fail_json(msg=f"{address}: {error}")
    if not device.wait():
        module.fail_json(msg=f"{address}: {device.status.state}: {device.status.reason}")
    return device


def is_secret(parameter):
    return "password" in parameter.class_names
