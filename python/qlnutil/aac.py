"""AAC: the start of an AudioSpecificConfig, and the header of an ADTS frame.

>>> config = read_config(bytes.fromhex("1190"))
>>> config.audioObjectType, config.samplingFrequency, config.channelConfiguration
(2, 48000, 2)
"""
from . import _core
from ._buffer import Buffer
from ._core import AacConfig, AdtsHeader

__all__ = ["AacConfig", "AdtsHeader", "read_adts_header", "read_config"]


def read_config(data: Buffer) -> AacConfig:
    """Reads the fixed start of an AudioSpecificConfig; no extension. Raises StreamError where the bytes end in it."""
    return _core.read_aac_config(data)


def read_adts_header(data: Buffer) -> AdtsHeader:
    """Reads the header of an ADTS frame; the syncword is not tested.

    crc_check is taken where protection_absent is not 0, the opposite of the published meaning.
    """
    return _core.read_adts_header(data)
