// What the linter asks of the page's modules, beyond being free of plain mistakes.
import js from "@eslint/js";

const browser = [
  "EventSource", "URLSearchParams", "AbortController", "DOMException", "CSS", "Intl", "addEventListener",
  "clearTimeout", "devicePixelRatio", "document", "fetch", "getComputedStyle", "getSelection", "history", "innerWidth",
  "location", "matchMedia", "setInterval", "setTimeout", "sessionStorage",
];

export default [
  js.configs.recommended,
  {
    languageOptions: {
      ecmaVersion: 2022,
      sourceType: "module",
      globals: Object.fromEntries(browser.map((name) => [name, "readonly"])),
    },
    linterOptions: { reportUnusedDisableDirectives: "error" },
    rules: {
      curly: "error",
      eqeqeq: "error",
      "max-lines-per-function": ["error", { max: 45, skipBlankLines: true, skipComments: true }],
      "no-empty-function": "off",
      "no-implicit-coercion": "error",
      "no-shadow": "error",
      "no-var": "error",
      "object-shorthand": "error",
      "prefer-const": "error",
      "prefer-template": "error",
    },
  },
];
