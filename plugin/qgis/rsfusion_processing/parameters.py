"""Options as parameters of Processing, and back."""
from qgis.core import (
    QgsProcessingParameterBoolean,
    QgsProcessingParameterDefinition,
    QgsProcessingParameterEnum,
    QgsProcessingParameterNumber,
    QgsProcessingParameterString,
)

from .options import CHOICE, NUMBER, SWITCH, TEXT, WHOLE


def parameter_of(option):
    name, title = option.parameter, option.title
    if option.kind == SWITCH:
        parameter = QgsProcessingParameterBoolean(name, title, False)
    elif option.kind == CHOICE:
        parameter = QgsProcessingParameterEnum(name, title, list(option.shown()), defaultValue=0)
    elif option.kind == TEXT:
        parameter = QgsProcessingParameterString(name, title, option.default, optional=True)
    else:
        limits = {
            key: value for key, value in (("minValue", option.least), ("maxValue", option.most)) if value is not None
        }
        kind = QgsProcessingParameterNumber.Integer if option.kind == WHOLE else QgsProcessingParameterNumber.Double
        parameter = QgsProcessingParameterNumber(
            name, title, kind, option.default, optional=option.default is None, **limits
        )
    if option.help:
        parameter.setHelp(option.help)
    return advanced(parameter) if option.advanced else parameter


def advanced(parameter):
    parameter.setFlags(parameter.flags() | QgsProcessingParameterDefinition.FlagAdvanced)
    return parameter


def with_numbers(options, parameters):
    """The parameters, with numbers in the place of the choices' names, which scripts may give as well."""
    found = dict(parameters)
    for option in options:
        value = found.get(option.parameter)
        if option.kind == CHOICE and isinstance(value, str) and value in option.choices:
            found[option.parameter] = option.choices.index(value)
    return found


def names_of(algorithm, names, parameters, parameter, context):
    """Those that are chosen of several. Without a choice Processing would take the first."""
    if not parameters.get(parameter):
        return []
    return [names[number] for number in algorithm.parameterAsEnums(parameters, parameter, context)]


def values_of(algorithm, options, parameters, context):
    """What has been given, by the command's names."""
    numbered = with_numbers(options, parameters)
    return {option.name: _value(algorithm, option, numbered, context) for option in options}


def _value(algorithm, option, parameters, context):
    name = option.parameter
    if option.kind == SWITCH:
        return algorithm.parameterAsBool(parameters, name, context)
    if option.kind == CHOICE:
        chosen = algorithm.parameterAsEnum(parameters, name, context)
        return option.choices[chosen] if chosen > 0 else None
    if option.kind == TEXT:
        return algorithm.parameterAsString(parameters, name, context).strip()
    if parameters.get(name) is None and option.default is None:
        return None
    return (algorithm.parameterAsDouble if option.kind == NUMBER else algorithm.parameterAsInt)(
        parameters, name, context
    )
